/* A third party's program in C: one header, one library. */
#include <ravo/ravo.h>

#include <stdio.h>

int main(void) {
    printf("0x%08X\n", RAVOGetVersion());
    return RAVOLoadWaveform(0, 10.0, 1.0) ? 0 : 1;
}
