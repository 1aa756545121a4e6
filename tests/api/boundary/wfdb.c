/* The header of the record library compiles on its own in C11. */
#include "WFDB/wfdb.h"

int main(void) {
    static char path[] = "no such record.hea";
    WFDB_HEADER* header = WFDBReadHeader(path);
    WFDBFreeHeader(header);
    WFDBMemFree(0);
    return header == 0 ? 0 : 1;
}
