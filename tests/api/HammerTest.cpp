// Two threads of a host call everything there is, in every order, while a simulator is connected.
// What they must not do is what the headers say: the record library is used by one thread at a
// time, g_WaveformType is left alone while anybody loads or plays, and a RAVOConnect that could
// time out, because another thread disconnects, is not called.
#include "api/ravo.h"
#include "tests/support/Encoding.h"
#include "tests/support/Files.h"
#include "tests/support/NoiseTestRecord.h"
#include "tests/support/Sanitizers.h"
#include "tests/WFDB/EDFFile.h"
#include "tools/emulator/Simulator.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <gtest/gtest.h>
#include <mutex>
#include <random>
#include <shared_mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using std::chrono::seconds;
using Clock = std::chrono::steady_clock;

// ---- Files -------------------------------------------------------------------------------------

constexpr int kSamples = 1000;

std::vector<int> Ramp(int count) {
    std::vector<int> samples;
    for (int i = 0; i < count; ++i) {
        samples.push_back(i % 400 - 200);
    }
    return samples;
}

// A file of every kind that the library reads.
class Files {
  public:
    char* Record() { return m_record.data(); }
    char* Noise() { return m_noise.data(); }
    const char* Annotations() const { return m_annotations.c_str(); }
    const char* AHA() const { return m_aha.c_str(); }
    const char* AHAText() const { return m_ahaText.c_str(); }
    const char* CSE() const { return m_cse.c_str(); }
    const char* Native() const { return m_native.c_str(); }
    const char* EDF() const { return m_edf.c_str(); }
    const char* Directory() const { return m_directory.Path().c_str(); }
    char* Output() { return m_output.data(); }

  private:
    std::string MakeRecord(const std::string& name) const {
        m_directory.Write(name + ".dat", EncodeFormat212(Ramp(2 * kSamples)));
        return m_directory.Write(name + ".hea", name + " 2 250 " + std::to_string(kSamples) + "\n" +
                                                    name + ".dat 212 200 12 0 0 0 0 I\n" + name +
                                                    ".dat 212 200 12 0 0 0 0 II\n");
    }
    // A normal beat every 100 frames.
    std::string MakeAnnotations() const {
        std::vector<std::uint8_t> words;
        for (int beat = 0; beat < 9; ++beat) {
            words.insert(words.end(), {100, 1 << 2});
        }
        words.insert(words.end(), {0, 0});
        return m_directory.Write("record.atr", words);
    }
    std::string MakeAHAText() const {
        std::string text;
        for (const int sample : Ramp(kSamples)) {
            text += std::to_string(sample) + "," + std::to_string(-sample) + "\r\n";
        }
        return m_directory.Write("1001.txt", text);
    }
    std::string MakeCSE() const {
        std::string text;
        for (const int sample : Ramp(kSamples)) {
            for (int column = 0; column < 12; ++column) {
                text += std::to_string(sample + column) + " ";
            }
            text += "\n";
        }
        return m_directory.Write("mo1_001.asc", text);
    }
    std::string MakeNative() const {
        std::string text = "500\n" + std::to_string(kSamples) + "\nStart\nLead I\n";
        for (const int sample : Ramp(kSamples)) {
            text += std::to_string(sample) + "\n";
        }
        return m_directory.Write("native.txt", text);
    }
    std::string MakeEDF() const {
        EDFFile file;
        file.DataRecords = std::to_string(kSamples / 100);
        EDFSignal lead;
        lead.SamplesPerRecord = "100";
        file.Signals = {lead};
        file.Samples = Ramp(kSamples);
        return m_directory.Write("made.edf", file.Encode());
    }

    Scratch m_directory;
    std::string m_record = MakeRecord("record");
    std::string m_noise = MakeRecord("noise");
    std::string m_annotations = MakeAnnotations();
    std::string m_aha = m_directory.Write("1001.ecg", std::string(5 * kSamples, '\1'));
    std::string m_ahaText = MakeAHAText();
    std::string m_cse = MakeCSE();
    std::string m_native = MakeNative();
    std::string m_edf = MakeEDF();
    std::string m_output = m_directory / "mixed";
};

// ---- Callbacks ---------------------------------------------------------------------------------

std::atomic<std::uint64_t> g_previewed{0};

void Listen(bool /*connected*/) {
    RAVOGetSerialNumber();
    RAVOIsOutputting();
}

void Preview(double /*time*/, double /*recordTime*/, double* /*leads*/, bool /*end*/) {
    if (++g_previewed % 5000 == 0) {
        RAVOStopOutput();
    }
}

void StopOnDelay(int /*delay*/) {
    RAVOStopOutput();
}

void IgnoreSignal(double /*time*/, double* /*leads*/, bool /*end*/) {}

// ---- One thread of the host --------------------------------------------------------------------

// Agreements that the threads of a host must make among themselves.
struct HostRules {
    std::shared_mutex together;
    std::mutex recordLibrary;
};

class HostThread {
  public:
    HostThread(Files& files, HostRules& rules, unsigned seed)
        : m_files(files), m_rules(rules), m_random(seed) {}

    void CallEverythingUntil(Clock::time_point end);

  private:
    enum class Rule { kAnyTime, kRecordLibrary, kAlone };
    struct Act {
        void (HostThread::*call)();
        Rule rule;
    };
    static const std::vector<Act>& Everything();
    void Do(const Act& act);

    int Below(int limit) { return std::uniform_int_distribution<int>(0, limit - 1)(m_random); }
    double Voltage() { return Below(2400) * 0.01 - 12.0; }

    void Release(ECG_HEADER* header) {
        EXPECT_NE(header, nullptr);
        RAVOFreeECGHeader(header);
    }

    // ---- The connection and the simulator
    void Init() { EXPECT_TRUE(RAVOInit(Listen)); }
    void InitPort() { EXPECT_TRUE(RAVOInitPort(0, Listen)); }
    void Free() { RAVOFree(); }
    void Connect() {
        RAVOFree();
        EXPECT_TRUE(RAVOConnect(-1, 100000));
    }
    void GetSerialNumber() { EXPECT_NE(RAVOGetSerialNumber(), nullptr); }
    void GetDeviceInformation() {
        MODEL_INFORMATION information;
        EXPECT_TRUE(RAVOGetDeviceInformation(&information));
    }
    void GetOutputInformation() {
        RAVO_OUTPUT_INFORMATION information;
        RAVOGetOutputInformation(&information);
    }
    void GetVersion() { EXPECT_EQ(RAVOGetVersion(), 0x01000504U); }

    // ---- Material
    void LoadAHA() { Release(RAVOLoadDatabaseAHA(m_files.AHA())); }
    void LoadAHAText() { Release(RAVOLoadDatabaseAHA(m_files.AHAText())); }
    void LoadCSE() { Release(RAVOLoadDatabaseCSE(m_files.CSE())); }
    void LoadNative() { Release(RAVOLoadDatabaseTarnwick(m_files.Native())); }
    void LoadMissing() { EXPECT_EQ(RAVOLoadDatabaseAHA("missing.ecg"), nullptr); }
    void LoadBuiltin() { Release(RAVOLoadDatabaseCTS_CSE(Below(119), Below(15))); }
    void DescribeBuiltin() {
        RAVO_BUILTIN_RECORD record;
        EXPECT_TRUE(RAVOGetBuiltinRecord(Below(119), &record));
        RAVO_BUILTIN_NOISE noise;
        EXPECT_TRUE(RAVOGetBuiltinNoise(Below(14), &noise));
    }
    void LoadWaveform() { EXPECT_TRUE(RAVOLoadWaveform(Below(3), Below(100), Voltage())); }
    void LoadRectangle() {
        EXPECT_TRUE(RAVOLoadWaveformRectanglePulse(Below(200), 1.0, Voltage()));
    }
    void LoadTriangle() { EXPECT_TRUE(RAVOLoadWaveformTrianglePulse(Below(200), 1.0, Voltage())); }
    void LoadEx() {
        std::array<double, 8> amplitudes{};
        std::generate(amplitudes.begin(), amplitudes.end(), [this] { return Voltage(); });
        EXPECT_TRUE(RAVOLoadWaveformEx(Below(3), 2.0, amplitudes.data()));
        for (const double amplitude : amplitudes) {
            EXPECT_LE(std::abs(amplitude), 10.0);
        }
    }
    void LoadCalibration() { EXPECT_TRUE(RAVOLoadWaveformCalibrationMode(1.0, Voltage())); }
    void LoadAutoCalibration() { EXPECT_TRUE(RAVOLoadWaveformAutoCalibrationMode()); }
    void GetSignal() { RAVOGetWaveformSignal(Below(3), 1, IgnoreSignal); }

    // ---- Output
    void Loop() { RAVOEnableLoop(Below(2) == 0); }
    void Noise() { RAVOEnableNoise(Below(2) == 0); }
    void Output() { RAVOOutputWaveform(Below(3), Preview, StopOnDelay); }
    void Stop() { RAVOStopOutput(); }
    void IsOutputting() { RAVOIsOutputting(); }

    // ---- The record library, and the loaders that use it
    void LoadMIT() {
        ECG_HEADER* header = RAVOLoadMITHeader(m_files.Record());
        ASSERT_NE(header, nullptr);
        header->Signal[0].Lead = static_cast<ECG_Lead>(Below(12));
        RAVOUpdateECGHeaderMappingLead(header);
        RAVOLoadMITDatabase(header);
        RAVOFreeECGHeader(header);
    }
    void ReadRecord() {
        WFDB_HEADER* header = WFDBReadHeader(m_files.Record());
        ASSERT_NE(header, nullptr);
        EXPECT_EQ(WFDBLoadSignal(m_files.Directory(), header), 1);
        EXPECT_EQ(WFDBSeek(header, 1), 1);
        std::array<double, 200> values{};
        EXPECT_EQ(WFDBNextSample(header, values.data(), 100), 100);
        EXPECT_EQ(WFDBLoadAnnotation(m_files.Annotations(), header), 1);
        WFDBAnnotationSeekBegin(header);
        WFDB_ANNOTATION annotation;
        EXPECT_EQ(WFDBNextAnnotation(header, &annotation), 1);
        EXPECT_EQ(annotation.Time, 100U);
        WFDBMemFree(WFDBSignalAmplitude(header, nullptr));
        double* amplitudes = nullptr;
        EXPECT_EQ(sigamp(header, &amplitudes), 2);
        WFDBMemFree(amplitudes);
        WFDBFreeHeader(header);
    }
    void MeasureRecord() {
        int count = 0;
        WFDBMemFree(WFDBSignalAmplitudeEx(m_files.Record(), &count));
        EXPECT_EQ(count, 2);
        double* amplitudes = nullptr;
        EXPECT_EQ(sigamp(static_cast<const char*>(m_files.Record()), &amplitudes), 2);
        WFDBMemFree(amplitudes);
    }
    void MixNoise() {
        NSTSetSignal(m_files.Record());
        NSTResetNoise();
        NSTAddNoise(m_files.Noise(), 6.0);
        EXPECT_EQ(NSTOutput(m_files.Output()), 0);
        EXPECT_EQ(nst(), 0);
        EXPECT_EQ(nst(m_files.Record(), m_files.Noise(), m_files.Output(), 6.0), 0);
    }
    void MixNoiseByConfiguration() {
        WFDBNoiseTestExSetSignal(m_files.Record());
        WFDBNoiseTestExResetNoise();
        WFDBNoiseTestExAddNoise(m_files.Noise(), 6.0);
        EXPECT_EQ(WFDBNoiseTestExOutput(m_files.Output()), 1);
        EXPECT_EQ(WFDBNoiseTest(m_files.Record(), m_files.Noise(), m_files.Output(), 6), 0);
    }
    void LoadNoiseTest() {
        const NoiseTestRecord place;
        WFDBNoiseTestExSetSignal(m_files.Record());
        WFDBNoiseTestExResetNoise();
        WFDBNoiseTestExAddNoise(m_files.Noise(), 6.0);
        RAVOFreeECGHeader(LoadDatabaseNoiseTest());
        EXPECT_EQ(LoadDatabaseNoiseTest(m_files.Record(), m_files.Noise(), 6), nullptr);
    }
    void ConvertEDF() {
        EXPECT_EQ(WFDBConvertEDF(m_files.EDF(), m_files.Directory()), 1);
        EXPECT_EQ(edf2mit(m_files.EDF(), m_files.Directory()), 1);
    }
    void ConvertAHA() {
        EXPECT_EQ(WFDBConvertAHA(m_files.AHAText(), m_files.Directory()), 0);
        EXPECT_EQ(ahaecg2mit(m_files.AHAText(), m_files.Directory()), 0);
    }
    void LoadEDF() {
        RAVOStopOutput();
        std::string repository = m_files.Directory();
        char* const initial = std::exchange(g_pszRepository, repository.data());
        ECG_HEADER* header = LoadDatabaseEDF(m_files.EDF(), MATERIAL_EDF);
        ASSERT_NE(header, nullptr);
        EXPECT_TRUE(RAVOLoadMITDatabase(header));
        g_WaveformType = MATERIAL_EDF;
        RAVOFreeECGHeader(header);
        g_pszRepository = initial;
    }

    Files& m_files;
    HostRules& m_rules;
    std::minstd_rand m_random;
};

const std::vector<HostThread::Act>& HostThread::Everything() {
    using Host = HostThread;
    static const std::vector<Act> acts = {
        {&Host::Init, Rule::kAnyTime},
        {&Host::InitPort, Rule::kAnyTime},
        {&Host::Free, Rule::kAnyTime},
        {&Host::Connect, Rule::kAlone},
        {&Host::GetSerialNumber, Rule::kAnyTime},
        {&Host::GetDeviceInformation, Rule::kAnyTime},
        {&Host::GetOutputInformation, Rule::kAnyTime},
        {&Host::GetVersion, Rule::kAnyTime},
        {&Host::LoadAHA, Rule::kAnyTime},
        {&Host::LoadAHAText, Rule::kAnyTime},
        {&Host::LoadCSE, Rule::kAnyTime},
        {&Host::LoadNative, Rule::kAnyTime},
        {&Host::LoadMissing, Rule::kAnyTime},
        {&Host::LoadBuiltin, Rule::kAnyTime},
        {&Host::DescribeBuiltin, Rule::kAnyTime},
        {&Host::LoadWaveform, Rule::kAnyTime},
        {&Host::LoadRectangle, Rule::kAnyTime},
        {&Host::LoadTriangle, Rule::kAnyTime},
        {&Host::LoadEx, Rule::kAnyTime},
        {&Host::LoadCalibration, Rule::kAnyTime},
        {&Host::LoadAutoCalibration, Rule::kAnyTime},
        {&Host::GetSignal, Rule::kAnyTime},
        {&Host::Loop, Rule::kAnyTime},
        {&Host::Noise, Rule::kAnyTime},
        {&Host::Output, Rule::kAnyTime},
        {&Host::Stop, Rule::kAnyTime},
        {&Host::IsOutputting, Rule::kAnyTime},
        {&Host::LoadMIT, Rule::kRecordLibrary},
        {&Host::ReadRecord, Rule::kRecordLibrary},
        {&Host::MeasureRecord, Rule::kRecordLibrary},
        {&Host::MixNoise, Rule::kRecordLibrary},
        {&Host::MixNoiseByConfiguration, Rule::kRecordLibrary},
        {&Host::LoadNoiseTest, Rule::kRecordLibrary},
        {&Host::ConvertEDF, Rule::kRecordLibrary},
        {&Host::ConvertAHA, Rule::kRecordLibrary},
        {&Host::LoadEDF, Rule::kAlone},
    };
    return acts;
}

void HostThread::Do(const Act& act) {
    std::shared_lock together(m_rules.together, std::defer_lock);
    std::unique_lock alone(m_rules.together, std::defer_lock);
    std::unique_lock recordLibrary(m_rules.recordLibrary, std::defer_lock);
    if (act.rule == Rule::kAlone) {
        alone.lock();
    } else {
        together.lock();
    }
    if (act.rule == Rule::kRecordLibrary) {
        recordLibrary.lock();
    }
    (this->*act.call)();
}

void HostThread::CallEverythingUntil(Clock::time_point end) {
    std::vector<Act> round = Everything();
    do {
        std::shuffle(round.begin(), round.end(), m_random);
        for (const Act& act : round) {
            Do(act);
        }
    } while (Clock::now() < end);
}

// ---- The test ----------------------------------------------------------------------------------

// A minute where races are looked for; elsewhere every call a few times.
seconds Duration() {
    return seconds(kUnderThreadSanitizer || std::getenv("RAVO_TEST_SOAK") != nullptr ? 60 : 3);
}

TEST(HammerTest, TwoThreadsCallEverything) {
    emulator::Settings settings = emulator::Settings::Of(emulator::Unit::kSixteenBit);
    settings.behaviour.speed = 0; // as fast as the host delivers
    settings.keepFrames = 0;
    emulator::Simulator simulator(settings);
    Files files;
    HostRules rules;
    ASSERT_TRUE(RAVOConnect(-1, 100000));

    const Clock::time_point end = Clock::now() + Duration();
    std::vector<std::thread> threads;
    for (const unsigned seed : {1U, 2U}) {
        threads.emplace_back(
            [&, seed] { HostThread(files, rules, seed).CallEverythingUntil(end); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_GT(simulator.Seen().Count().frames, 0U);
    EXPECT_GT(g_previewed, 0U);

    // The library still works.
    RAVOFree();
    ASSERT_TRUE(RAVOConnect(-1, 100000));
    ASSERT_TRUE(RAVOLoadWaveform(WAVEFORM_SINE, 1.0, 1.0));
    const std::uint64_t before = simulator.Seen().Count().frames;
    ASSERT_TRUE(RAVOOutputWaveform(0, nullptr, nullptr));
    EXPECT_TRUE(simulator.Seen().WaitForFrames(before + 10000, seconds(60)));
    RAVOFree();
}

} // namespace
