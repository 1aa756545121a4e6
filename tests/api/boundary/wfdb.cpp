// The header of the record library compiles on its own in C++.
#include "WFDB/wfdb.h"

int main() {
    static char path[] = "no such record.hea";
    double* amplitudes = nullptr;
    const int signals = sigamp(path, &amplitudes);
    WFDBMemFree(amplitudes);
    return WFDBReadHeader(path) == nullptr && signals == 0 ? 0 : 1;
}
