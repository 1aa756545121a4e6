// A third party's program in C++: both headers, functions of both.
#include <ravo/ravo.h>
#include <ravo/wfdb.h>

#include <cstdio>

int main() {
    char path[] = "no such record.hea";
    std::printf("0x%08X\n", RAVOGetVersion());
    return WFDBReadHeader(path) == nullptr && RAVOLoadWaveform(0, 10.0, 1.0) ? 0 : 1;
}
