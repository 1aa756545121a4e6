// Every export that can fail says why: the code, and a text that names what failed and where.
#include "Errors.h"
#include "api/ravo.h"
#include "ravo/search.h"

#include <fstream>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

void Ignore(double /*time*/, double* /*leads*/, bool /*end*/) {}

} // namespace

std::vector<Failing> Errors::LoaderFailures() {
    using Load = ECG_HEADER* (*)(const char*);
    const auto fails = [=](Load load, const char* name) {
        return [=] { return load(File(name).c_str()) == nullptr; };
    };
    const auto edf = [=](const char* name) {
        return LoadDatabaseEDF(File(name).c_str(), MATERIAL_EDF) == nullptr;
    };
    std::vector<Failing> cases;
    for (const auto& [symbol, load] :
         {std::pair<const char*, Load>("RAVOLoadMITHeader", RAVOLoadMITHeader),
          {"RAVOLoadDatabaseCSE", RAVOLoadDatabaseCSE},
          {"RAVOLoadDatabaseTarnwick", RAVOLoadDatabaseTarnwick}}) {
        Append(cases, FileFailures(m_directory, symbol,
                                   [f = load](const char* path) { return f(path) == nullptr; }));
    }
    Append(cases,
           {
               {"RAVOLoadMITHeader", fails(RAVOLoadMITHeader, "lost.hea"), RAVO_ERROR_NO_SUCH_FILE,
                File("lost.dat")},
               {"RAVOLoadMITHeader", fails(RAVOLoadMITHeader, "mat.hea"), RAVO_ERROR_UNSUPPORTED,
                "mat"},
               {"RAVOLoadMITHeader", fails(RAVOLoadMITHeader, "minus.hea"), RAVO_ERROR_FORMAT,
                "record minus announces -4 samples"},
               {"RAVOLoadMITHeader", fails(RAVOLoadMITHeader, "long.hea"), RAVO_ERROR_MEMORY,
                "no memory for 1 signals of 999999999999999 samples"},
               {"RAVOLoadMITDatabase", [] { return !RAVOLoadMITDatabase(nullptr); },
                RAVO_ERROR_ARGUMENT, "header"},
               {"RAVOLoadDatabaseAHA", [] { return RAVOLoadDatabaseAHA(nullptr) == nullptr; },
                RAVO_ERROR_ARGUMENT, "path"},
               {"RAVOLoadDatabaseAHA", fails(RAVOLoadDatabaseAHA, "no.dat"), RAVO_ERROR_FORMAT,
                "\".ecg\""},
               {"RAVOLoadDatabaseAHA", fails(RAVOLoadDatabaseAHA, "no.ecg"),
                RAVO_ERROR_NO_SUCH_FILE, File("no.ecg")},
               {"RAVOLoadDatabaseAHA", fails(RAVOLoadDatabaseAHA, "no.txt"),
                RAVO_ERROR_NO_SUCH_FILE, File("no.txt")},
               {"RAVOLoadDatabaseCSE", fails(RAVOLoadDatabaseCSE, "few.dcd"), RAVO_ERROR_FORMAT,
                "few.dcd: 100 bytes are too few for a CSE record of 9999 samples"},
               {"RAVOLoadDatabaseCSE", fails(RAVOLoadDatabaseCSE, "few.cse"), RAVO_ERROR_FORMAT,
                "few.cse: line 2 has 3 values instead of 12"},
               {"RAVOLoadDatabaseTarnwick", fails(RAVOLoadDatabaseTarnwick, "rate.txt"),
                RAVO_ERROR_FORMAT, "line 2 is not a number of samples"},
               {"RAVOLoadDatabaseTarnwick", fails(RAVOLoadDatabaseTarnwick, "start.txt"),
                RAVO_ERROR_FORMAT, "start.txt: line 3 is not \"start\""},
               {"LoadDatabaseEDF", [] { return LoadDatabaseEDF(nullptr, MATERIAL_EDF) == nullptr; },
                RAVO_ERROR_ARGUMENT, "path"},
               {"LoadDatabaseEDF", [=] { return edf("no.edf"); }, RAVO_ERROR_NO_SUCH_FILE,
                File("no.edf")},
               {"LoadDatabaseEDF", [=] { return edf("foreign.edf"); }, RAVO_ERROR_FORMAT,
                "foreign.edf"},
           });
    return cases;
}

std::vector<Failing> Errors::MaterialFailures() {
    const auto noiseTest = [=](const char* signal) {
        return LoadDatabaseNoiseTest(File(signal).c_str(), File("one").c_str(), 6) == nullptr;
    };
    static RAVO_BUILTIN_RECORD record;
    static RAVO_BUILTIN_NOISE noise;
    static double samples[10000];
    return {
        {"_Z21LoadDatabaseNoiseTestv",
         [] {
             NSTResetNoise();
             return LoadDatabaseNoiseTest() == nullptr;
         },
         RAVO_ERROR_NOTHING_LOADED, "no noise stress test is configured"},
        {"_Z21LoadDatabaseNoiseTestPKcS0_i", [=] { return noiseTest("no"); },
         RAVO_ERROR_NO_SUCH_FILE, "ravo"},
        {"_Z21LoadDatabaseNoiseTestPKcS0_i", [=] { return noiseTest("one"); },
         RAVO_ERROR_UNSUPPORTED, "loads nothing"},
        {"RAVOLoadDatabaseCTS_CSE", [] { return RAVOLoadDatabaseCTS_CSE(119, 14) == nullptr; },
         RAVO_ERROR_ARGUMENT, "no built-in record 119, only 0 to 118"},
        {"RAVOLoadDatabaseCTS_CSE", [] { return RAVOLoadDatabaseCTS_CSE(0, 15) == nullptr; },
         RAVO_ERROR_ARGUMENT, "no built-in noise 15, only 0 to 13"},
        {"RAVOGetBuiltinRecord", [] { return !RAVOGetBuiltinRecord(-1, &record); },
         RAVO_ERROR_ARGUMENT, "record -1"},
        {"RAVOGetBuiltinRecord", [] { return !RAVOGetBuiltinRecord(0, nullptr); },
         RAVO_ERROR_ARGUMENT, "place"},
        {"RAVOGetBuiltinNoise", [] { return !RAVOGetBuiltinNoise(14, &noise); },
         RAVO_ERROR_ARGUMENT, "noise 14"},
        {"RAVOGetBuiltinNoise", [] { return !RAVOGetBuiltinNoise(0, nullptr); },
         RAVO_ERROR_ARGUMENT, "place"},
        {"RAVOGetBuiltinNoiseSamples", [] { return !RAVOGetBuiltinNoiseSamples(0, nullptr); },
         RAVO_ERROR_ARGUMENT, "place"},
        {"RAVOGetBuiltinNoiseSamples", [] { return !RAVOGetBuiltinNoiseSamples(14, samples); },
         RAVO_ERROR_ARGUMENT, "noise 14"},
        {"RAVOLoadWaveform", [] { return !RAVOLoadWaveform(3, 1.0, 1.0); }, RAVO_ERROR_ARGUMENT,
         "no waveform of type 3"},
        {"RAVOLoadWaveformEx", [] { return !RAVOLoadWaveformEx(0, 1.0, nullptr); },
         RAVO_ERROR_ARGUMENT, "amplitudes"},
    };
}

// Without a simulator.
std::vector<Failing> Errors::OutputFailures() {
    const auto loadUnmapped = [=] {
        RAVOFreeECGHeader(RAVOLoadMITHeader(File("one.hea").c_str()));
    };
    static RAVO_OUTPUT_INFORMATION output;
    static RAVO_OUTPUT_POSITION position;
    return {
        {"RAVOGetWaveformSignal", [] { return !RAVOGetWaveformSignal(0, 1, nullptr); },
         RAVO_ERROR_ARGUMENT, "callback"},
        {"RAVOGetWaveformSignal", [] { return !RAVOGetWaveformSignal(0, 1, Ignore); },
         RAVO_ERROR_NOTHING_LOADED, "no material is loaded"},
        {"RAVOGetWaveformSignal",
         [=] {
             loadUnmapped();
             return !RAVOGetWaveformSignal(0, 1, Ignore);
         },
         RAVO_ERROR_NO_LEAD, "no signal of the record feeds an output lead"},
        {"RAVOGetDeviceInformation", [] { return !RAVOGetDeviceInformation(nullptr); },
         RAVO_ERROR_ARGUMENT, "information"},
        {"RAVOGetOutputInformation", [] { return !RAVOGetOutputInformation(nullptr); },
         RAVO_ERROR_ARGUMENT, "information"},
        {"RAVOGetOutputInformation", [] { return !RAVOGetOutputInformation(&output); },
         RAVO_ERROR_NOT_CONNECTED, "no simulator"},
        {"RAVOOutputWaveform", [] { return !RAVOOutputWaveform(0, nullptr, nullptr); },
         RAVO_ERROR_NOT_CONNECTED, "no simulator"},
        {"RAVOGetSearchReport", [] { return !RAVOGetSearchReport(0, nullptr); },
         RAVO_ERROR_ARGUMENT, "RAVOGetSearchReport"},
        {"RAVOOutputOnce", [] { return !RAVOOutputOnce(0, 0.0, nullptr, nullptr); },
         RAVO_ERROR_NOT_CONNECTED, "no simulator"},
        {"RAVOGetOutputPosition", [] { return !RAVOGetOutputPosition(nullptr); },
         RAVO_ERROR_ARGUMENT, "position"},
        {"RAVOGetOutputPosition", [] { return !RAVOGetOutputPosition(&position); },
         RAVO_ERROR_NOTHING_LOADED, "no output was ever started"},
    };
}

namespace {

// Exports without a result that indicates failure, and variables.
bool CannotFail(const std::string& symbol) {
    static const std::set<std::string> symbols = {"NSTAddNoise",
                                                  "NSTResetNoise",
                                                  "NSTSetSignal",
                                                  "RAVOEnableLoop",
                                                  "RAVOEnableNoise",
                                                  "RAVOFree",
                                                  "RAVOFreeECGHeader",
                                                  "RAVOGetLastError",
                                                  "RAVOGetSerialNumber",
                                                  "RAVOGetVersion",
                                                  "RAVOIsOutputting",
                                                  "RAVOStopOutput",
                                                  "RAVOUpdateECGHeaderMappingLead",
                                                  "WFDBAnnotationSeekBegin",
                                                  "WFDBFreeHeader",
                                                  "WFDBMemFree",
                                                  "WFDBNoiseTestExAddNoise",
                                                  "WFDBNoiseTestExResetNoise",
                                                  "WFDBNoiseTestExSetSignal",
                                                  "g_WaveformType",
                                                  "g_pszRepository"};
    return symbols.count(symbol) != 0;
}

// They fail for lack of memory, of a thread or of a simulator: the tests of the connection cover
// this.
bool FailsElsewhere(const std::string& symbol) {
    static const std::set<std::string> symbols = {"RAVOConnect",
                                                  "RAVOInit",
                                                  "RAVOInitPort",
                                                  "RAVOLoadWaveformAutoCalibrationMode",
                                                  "RAVOLoadWaveformCalibrationMode",
                                                  "RAVOLoadWaveformRectanglePulse",
                                                  "RAVOLoadWaveformTrianglePulse",
                                                  "RAVOWaitConnected"};
    return symbols.count(symbol) != 0;
}

TEST_F(Errors, AreNamedByEveryExportThatCanFail) {
    Expect(OutputFailures()); // while nothing is loaded
    Expect(RecordFailures());
    Expect(SignalFailures());
    Expect(AmplitudeFailures());
    Expect(NoiseTestFailures());
    Expect(ConverterFailures());
    Expect(LoaderFailures());
    Expect(MaterialFailures());
    std::ifstream list(RAVO_EXPORTS_LIST);
    for (std::string symbol; std::getline(list, symbol);) {
        EXPECT_EQ(m_proven.count(symbol) + CannotFail(symbol) + FailsElsewhere(symbol), 1U)
            << symbol;
    }
}

// Attempts that fail on the way to success leave no trace.
TEST_F(Errors, AreLeftAloneBySuccess) {
    EXPECT_EQ(RAVOLoadMITHeader("/first.hea"), nullptr);
    ECG_HEADER* header = RAVOLoadMITHeader(File("one.hea").c_str());
    ASSERT_NE(header, nullptr);
    EXPECT_TRUE(RAVOLoadMITDatabase(header));
    RAVOFreeECGHeader(header);
    int count = 0;
    WFDBMemFree(WFDBSignalAmplitudeEx(File("one.hea").data(), &count)); // it has no annotations
    EXPECT_EQ(count, 1);
    NSTSetSignal(File("one").c_str());
    NSTAddNoise(File("one").c_str(), 6.0);
    EXPECT_EQ(NSTOutput(File("mixed").c_str()), 0);
    EXPECT_EQ(WFDBConvertEDF(File("good.edf").c_str(), m_directory.Path().c_str()), 1);
    EXPECT_TRUE(RAVOLoadWaveform(0, 1.0, 1.0));
    char text[100];
    EXPECT_EQ(RAVOGetLastError(text, sizeof text), RAVO_ERROR_NO_SUCH_FILE);
    EXPECT_STREQ(text, "/first.hea: No such file or directory");
}

} // namespace
