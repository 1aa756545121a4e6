#include "api/Connection.h"
#include "api/main.h"
#include "api/ravo.h"
#include "device/Device.h"
#include "device/Protocol.h"
#include "engine/loaders/LoadWaveform.h"
#include "engine/Record.h"
#include "engine/Settings.h"
#include "engine/Waveform.h"
#include "platform/SharedValue.h"

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <thread>
#include <vector>

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

double Validated(void (*validate)(double&), double value) {
    validate(value);
    return value;
}

TEST(Exports, FrequenciesAreRoundedAndHeld) {
    const struct {
        double given;
        double expected;
    } cases[] = {
        {0.004, 0.0},        {0.005, 0.01},     {1.234, 1.23},  {1.235, 1.24}, {99.994, 99.99},
        {150.0, 100.0},      {100.004, 100.0},  {-3.0, 0.0},    {-0.004, 0.0}, {0.0, 0.0},
        {kInfinity, 100.0},  {-kInfinity, 0.0}, {1e300, 100.0}, {-1e300, 0.0}, {50.0, 50.0},
        {std::nan(""), 0.0}, {100.0, 100.0},
    };
    for (const auto& frequency : cases) {
        EXPECT_EQ(Validated(ValidateFrequency, frequency.given), frequency.expected)
            << frequency.given;
    }
}

TEST(Exports, AmplitudesAreHeldAndNotRounded) {
    EXPECT_EQ(Validated(ValidateAmplitude, 12.0), 10.0);
    EXPECT_EQ(Validated(ValidateAmplitude, -20.0), -10.0);
    EXPECT_EQ(Validated(ValidateAmplitude, 0.12345678), 0.12345678);
    EXPECT_EQ(Validated(ValidateAmplitude, kInfinity), 10.0);
    EXPECT_EQ(Validated(ValidateAmplitude, std::nan("")), 0.0);
}

TEST(Exports, VersionIsOneByteAPart) {
    EXPECT_EQ(RAVOGetVersion(), 0x01000504u);
    EXPECT_EQ(RAVOGetVersion(), 16778500u);
    EXPECT_EQ(ConvertVersion("2.3.4.5"), 0x02030405u);
    EXPECT_EQ(ConvertVersion(nullptr), 0u);
    EXPECT_EQ(ConvertVersion("7"), 0x07000000u);
    EXPECT_EQ(ConvertVersion(""), 0u);
}

TEST(Exports, WaveformTakesCorrectedParameters) {
    ASSERT_TRUE(RAVOLoadWaveform(WAVEFORM_SINE, 0.004, 12.0));
    EXPECT_EQ(g_fPeriodFrequency, 0.0);
    for (const double amplitude : g_fPeriodAmplitude) {
        EXPECT_EQ(amplitude, 10.0);
    }
    EXPECT_EQ(g_WaveformType, MATERIAL_SINE);
    EXPECT_FALSE(RAVOLoadWaveform(7, 1.0, 1.0));
    EXPECT_EQ(g_WaveformType, MATERIAL_SINE);
}

TEST(Exports, WaveformExCorrectsTheCallersArray) {
    double amplitudes[8] = {-20.0, 0.5, 10.0, 11.0, 0.0, -10.0, 3.0, 1e9};
    ASSERT_TRUE(RAVOLoadWaveformEx(WAVEFORM_SQUARE, 250.0, amplitudes));
    const double expected[8] = {-10.0, 0.5, 10.0, 10.0, 0.0, -10.0, 3.0, 10.0};
    for (int lead = 0; lead < 8; ++lead) {
        EXPECT_EQ(amplitudes[lead], expected[lead]) << lead;
        EXPECT_EQ(g_fPeriodAmplitude[lead], expected[lead]) << lead;
    }
    EXPECT_EQ(g_fPeriodFrequency, 100.0);
    EXPECT_FALSE(RAVOLoadWaveformEx(WAVEFORM_SQUARE, 1.0, nullptr));
}

TEST(Exports, PulsesAndTablesTakeCorrectedParameters) {
    ASSERT_TRUE(RAVOLoadWaveformRectanglePulse(100, 1.239, -11.0));
    EXPECT_EQ(g_WaveformType, MATERIAL_RECTANGLE_PULSE);
    EXPECT_EQ(g_nPeriodPulseWidth, 100);
    EXPECT_EQ(g_fPeriodFrequency, 1.24);
    EXPECT_EQ(g_fPeriodAmplitude[7], -10.0);

    ASSERT_TRUE(RAVOLoadWaveformTrianglePulse(40, 2.0, 3.0));
    EXPECT_EQ(g_WaveformType, MATERIAL_TRIANGLE_PULSE);
    EXPECT_EQ(g_nPeriodPulseWidth, 40);

    ASSERT_TRUE(RAVOLoadWaveformCalibrationMode(1.0, 25.0));
    EXPECT_EQ(g_WaveformType, MATERIAL_TABLE);
    EXPECT_EQ(g_pECGData[0][181], 10.0);

    ASSERT_TRUE(RAVOLoadWaveformAutoCalibrationMode());
    EXPECT_EQ(g_nSampleCount, 45000u);
    EXPECT_EQ(g_pECGData[7][44999], -5.0);
}

TEST(Exports, NullArgumentsAreFailures) {
    EXPECT_EQ(RAVOLoadMITHeader(nullptr), nullptr);
    EXPECT_EQ(RAVOLoadDatabaseAHA(nullptr), nullptr);
    EXPECT_EQ(RAVOLoadDatabaseCSE(nullptr), nullptr);
    EXPECT_EQ(RAVOLoadDatabaseTarnwick(nullptr), nullptr);
    EXPECT_FALSE(RAVOGetDeviceInformation(nullptr));
    EXPECT_FALSE(RAVOGetOutputInformation(nullptr));
    EXPECT_FALSE(RAVOGetWaveformSignal(0, 1, nullptr));
    EXPECT_FALSE(RAVOGetBuiltinRecord(0, nullptr));
    EXPECT_FALSE(RAVOGetBuiltinNoise(0, nullptr));
    RAVOUpdateECGHeaderMappingLead(nullptr);
    RAVOFreeECGHeader(nullptr);
}

TEST(Exports, NullHeaderIsRefusedWithoutTheLock) {
    const CAutoCriticalSection lock(g_APICriticalSection);
    EXPECT_FALSE(RAVOLoadMITDatabase(nullptr));
}

void Ignore(double /*time*/, double* /*leads*/, bool /*end*/) {}

struct Call {
    const char* name;
    std::function<void()> make;
};

// Every export that waits for the call of another thread.
std::vector<Call> LockedCalls() {
    static MODEL_INFORMATION model;
    static RAVO_OUTPUT_INFORMATION output;
    static ECG_HEADER header;
    static double amplitudes[8];
    return {
        {"Init", [] { RAVOInit(nullptr); }},
        {"InitPort", [] { RAVOInitPort(127, nullptr); }},
        {"Free", [] { RAVOFree(); }},
        {"GetSerialNumber", [] { RAVOGetSerialNumber(); }},
        {"GetDeviceInformation", [] { RAVOGetDeviceInformation(&model); }},
        {"GetOutputInformation", [] { RAVOGetOutputInformation(&output); }},
        {"IsOutputting", [] { RAVOIsOutputting(); }},
        {"LoadMITHeader", [] { RAVOLoadMITHeader("/none.hea"); }},
        {"LoadMITDatabase", [] { RAVOLoadMITDatabase(&header); }},
        {"UpdateECGHeaderMappingLead", [] { RAVOUpdateECGHeaderMappingLead(nullptr); }},
        {"FreeECGHeader", [] { RAVOFreeECGHeader(nullptr); }},
        {"LoadDatabaseAHA", [] { RAVOLoadDatabaseAHA("/none.ecg"); }},
        {"LoadDatabaseCSE", [] { RAVOLoadDatabaseCSE("/none.dcd"); }},
        {"LoadDatabaseTarnwick", [] { RAVOLoadDatabaseTarnwick("/none.txt"); }},
        {"LoadDatabaseCTS_CSE", [] { RAVOLoadDatabaseCTS_CSE(-1, CTSCSE_NOISE_NONE); }},
        {"LoadWaveform", [] { RAVOLoadWaveform(WAVEFORM_SINE, 1.0, 1.0); }},
        {"LoadWaveformRectanglePulse", [] { RAVOLoadWaveformRectanglePulse(100, 1.0, 1.0); }},
        {"LoadWaveformTrianglePulse", [] { RAVOLoadWaveformTrianglePulse(100, 1.0, 1.0); }},
        {"LoadWaveformCalibrationMode", [] { RAVOLoadWaveformCalibrationMode(1.0, 1.0); }},
        {"LoadWaveformAutoCalibrationMode", [] { RAVOLoadWaveformAutoCalibrationMode(); }},
        {"LoadWaveformEx", [] { RAVOLoadWaveformEx(WAVEFORM_SINE, 1.0, amplitudes); }},
        {"GetWaveformSignal", [] { RAVOGetWaveformSignal(0, 1, Ignore); }},
        {"EnableLoop", [] { RAVOEnableLoop(false); }},
        {"EnableNoise", [] { RAVOEnableNoise(false); }},
        {"OutputWaveform", [] { RAVOOutputWaveform(0, nullptr, nullptr); }},
        {"OutputOnce", [] { RAVOOutputOnce(0, 0.0, nullptr, nullptr); }},
        {"StopOutput", [] { RAVOStopOutput(); }},
    };
}

// A call that took no lock would return within the sleep, or be missed on a busy machine.
TEST(Exports, EachWaitsForTheCallUnderWay) {
    const std::vector<Call> calls = LockedCalls();
    std::vector<std::atomic<bool>> returned(calls.size());
    std::atomic<std::size_t> begun{0};
    std::vector<std::thread> threads;
    {
        const CAutoCriticalSection lock(g_APICriticalSection);
        for (std::size_t i = 0; i < calls.size(); ++i) {
            threads.emplace_back([&, i] {
                ++begun;
                calls[i].make();
                returned[i] = true;
            });
        }
        while (begun < calls.size()) {
            std::this_thread::yield();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        for (std::size_t i = 0; i < calls.size(); ++i) {
            EXPECT_FALSE(returned[i]) << calls[i].name;
        }
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    RAVOFree();
}

TEST(Exports, VersionAndBuiltinListNeedNoLock) {
    const CAutoCriticalSection lock(g_APICriticalSection);
    EXPECT_EQ(RAVOGetVersion(), 0x01000504U);
    RAVO_BUILTIN_RECORD record;
    EXPECT_TRUE(RAVOGetBuiltinRecord(CTSCSE_CAL10000, &record));
}

TEST(Exports, OutputNeedsADevice) {
    ASSERT_FALSE(DeviceIsConnected());
    ASSERT_TRUE(RAVOLoadWaveform(WAVEFORM_SINE, 1.0, 1.0));
    EXPECT_FALSE(RAVOOutputWaveform(0, nullptr, nullptr));
    EXPECT_FALSE(RAVOIsOutputting());
    RAVO_OUTPUT_INFORMATION information;
    EXPECT_FALSE(RAVOGetOutputInformation(&information));
}

// Where no connect thread decides otherwise, an open port is the simulator's.
TEST(Exports, OpenPortIsTheSimulatorsWithoutAConnectThread) {
    DeviceUse(open("/dev/null", O_RDWR | O_CLOEXEC));
    RAVO_OUTPUT_INFORMATION information;
    EXPECT_TRUE(RAVOGetOutputInformation(&information));
    EXPECT_STREQ(information.DevicePath, "");
    DeviceClose();
    EXPECT_FALSE(RAVOGetOutputInformation(&information));
}

TEST(Exports, SerialNumberWithoutADeviceIsThePrefix) {
    EXPECT_STREQ(RAVOGetSerialNumber(), "TR");
}

TEST(Exports, SerialNumberComesFromWhatTheDeviceSaid) {
    g_bIsISPSupported = 0;
    std::strcpy(g_strSerialNumber, "0001234");
    EXPECT_STREQ(RAVOGetSerialNumber(), "TR0001234");

    g_bIsISPSupported = 1;
    std::strcpy(g_strHWInfo, "TAB2105-170256");
    EXPECT_STREQ(RAVOGetSerialNumber(), "TAB2105-170256");

    MODEL_INFORMATION information;
    ASSERT_TRUE(RAVOGetDeviceInformation(&information));
    EXPECT_EQ(std::memcmp(information.ModelName, "RAVO 2.0", 9), 0);
    EXPECT_STREQ(information.SerialNumber, "TAB2105-170256");
}

// Proven in the builds that detect races: a unit is identified again while the host asks for its
// identity.
TEST(Exports, SerialNumberMayBeAskedForWhileItChanges) {
    g_bIsISPSupported = 1;
    std::thread identification([] {
        const char serial[sizeof g_strHWInfo] = "TAB2105-170256";
        for (int n = 0; n < 1000; ++n) {
            StoreSharedBytes(g_strHWInfo, serial, sizeof serial);
        }
    });
    for (int n = 0; n < 1000; ++n) {
        RAVOGetSerialNumber();
    }
    identification.join();
    EXPECT_STREQ(RAVOGetSerialNumber(), "TAB2105-170256");
}

TEST(Exports, SettingsReachTheEngine) {
    RAVOEnableLoop(true);
    EXPECT_EQ(g_bPlayLoop, 1);
    RAVOEnableLoop(false);
    EXPECT_EQ(g_bPlayLoop, 0);
    RAVOEnableNoise(true);
    EXPECT_EQ(g_NoiseOn, 1);
    RAVOEnableNoise(false);
    EXPECT_EQ(g_NoiseOn, 0);
}

TEST(Exports, BuiltinRecordLoadsByItsNumber) {
    ECG_HEADER* header = RAVOLoadDatabaseCTS_CSE(CTSCSE_CAL10000, CTSCSE_NOISE_NONE);
    ASSERT_NE(header, nullptr);
    EXPECT_STREQ(header->RecordName, "CAL10000");
    RAVOFreeECGHeader(header);
    EXPECT_EQ(RAVOLoadDatabaseCTS_CSE(119, CTSCSE_NOISE_NONE), nullptr);
    EXPECT_EQ(RAVOLoadDatabaseCTS_CSE(-1, CTSCSE_NOISE_NONE), nullptr);

    RAVO_BUILTIN_RECORD record;
    ASSERT_TRUE(RAVOGetBuiltinRecord(CTSCSE_PCTH125, &record));
    EXPECT_STREQ(record.Name, "MA1_125");
    RAVO_BUILTIN_NOISE noise;
    ASSERT_TRUE(RAVOGetBuiltinNoise(CTSCSE_NOISE_HF_50, &noise));
    EXPECT_STREQ(noise.Name, "HF_50");
}

// A quarter of 20 ms into it the stand-in of the mains noise is at its peak of 25 microvolts.
TEST(Exports, BuiltinNoiseGivesItsSamples) {
    std::vector<double> samples(10000);
    ASSERT_TRUE(RAVOGetBuiltinNoiseSamples(CTSCSE_NOISE_50HZ, samples.data()));
    RAVO_BUILTIN_NOISE noise;
    ASSERT_TRUE(RAVOGetBuiltinNoise(CTSCSE_NOISE_50HZ, &noise));
    if (noise.Licensed == 0) {
        EXPECT_EQ(samples[5], 0.025);
        EXPECT_EQ(samples[9995], -0.025);
    }
    EXPECT_FALSE(RAVOGetBuiltinNoiseSamples(14, samples.data()));
    EXPECT_FALSE(RAVOGetBuiltinNoiseSamples(-1, samples.data()));
    EXPECT_FALSE(RAVOGetBuiltinNoiseSamples(0, nullptr));
}

std::vector<double> g_CollectedLeadI;
double g_fEndTime = -1.0;

void Collect(double time, double* leads, bool end) {
    if (end) {
        g_fEndTime = time;
    } else {
        g_CollectedLeadI.push_back(leads[0]);
    }
}

TEST(Exports, WaveformSignalShowsTheLoadedMaterial) {
    ASSERT_TRUE(RAVOLoadWaveformCalibrationMode(1.0, 2.0));
    ASSERT_TRUE(RAVOGetWaveformSignal(0, 1, Collect));
    ASSERT_EQ(g_CollectedLeadI.size(), 360u);
    EXPECT_EQ(g_CollectedLeadI[180], 0.0);
    EXPECT_EQ(g_CollectedLeadI[181], 2.0);
    EXPECT_EQ(g_fEndTime, 1.0);
}

TEST(Exports, TwoStopsAtOnceReturn) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int n = 0; n < 200; ++n) {
                RAVOStopOutput();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_FALSE(RAVOIsOutputting());
}

} // namespace
