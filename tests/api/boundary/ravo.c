/* The header of the device functions compiles on its own in C, both C99 and C11. */
#include "api/ravo.h"

static void Hear(bool connected) {
    (void)connected;
}

static void Show(double time, double recordTime, double* leads, bool end) {
    (void)time;
    (void)recordTime;
    (void)leads;
    (void)end;
}

static void Delayed(int delay) {
    (void)delay;
}

/* What a host in C writes must compile against the declarations. */
int PlayFromC(const char* path);
int PlayFromC(const char* path) {
    ECG_HEADER* header = RAVOLoadMITHeader(path);
    bool loaded = RAVOLoadMITDatabase(header);
    RAVOFreeECGHeader(header);
    return RAVOInit(Hear) && loaded && RAVOOutputWaveform(0, Show, Delayed) ? 0 : 1;
}

/* Hosts write the kinds of material as numbers. */
_Static_assert(MATERIAL_NONE == 0 && MATERIAL_DIRECT == 1 && MATERIAL_AHA == 2 &&
                   MATERIAL_MIT == 3 && MATERIAL_TARNWICK == 4 && MATERIAL_TABLE == 5 &&
                   MATERIAL_EDF_FOUR_CHEST == 6 && MATERIAL_EDF == 7 && MATERIAL_SINE == 129 &&
                   MATERIAL_TRIANGLE == 130 && MATERIAL_RECTANGLE_PULSE == 131 &&
                   MATERIAL_SQUARE == 132 && MATERIAL_TRIANGLE_PULSE == 133,
               "kinds of material");

int main(void) {
    MODEL_INFORMATION model = {{0}, {0}};
    if (sizeof(MODEL_INFORMATION) != 32 || sizeof(ECG_HEADER) != 76 || sizeof(ECG_SIGNAL) != 20) {
        return 1;
    }
    if (!RAVOGetDeviceInformation(&model) || RAVOGetVersion() != 0x01000504U) {
        return 2;
    }
    /* Without material and a simulator nothing plays. */
    return PlayFromC("no such record.hea") == 1 ? 0 : 3;
}
