#include "engine/Settings.h"

#include "engine/Record.h"
#include "platform/SharedValue.h"

int32_t g_NoiseOn = 0;
double g_fVoltageRange = 5.0;
int32_t g_bPlayLoop = 0;

void SetOutputVoltageRange(double range) {
    const CAutoCriticalSection lock(g_CriticalSection);
    StoreShared(g_fVoltageRange, range);
}

void EnableNoise(bool on) {
    const CAutoCriticalSection lock(g_CriticalSection);
    StoreShared(g_NoiseOn, on);
}

void SetOutputLoop(bool loop) {
    const CAutoCriticalSection lock(g_CriticalSection);
    StoreShared(g_bPlayLoop, loop);
}
