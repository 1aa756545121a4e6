// Every export that can fail says why: the code, and a text that names what failed and where.
#include "api/ravo.h"
#include "ravo/search.h"
#include "tests/support/Encoding.h"
#include "tests/support/Files.h"
#include "tests/support/NoiseTestRecord.h"
#include "tests/WFDB/EDFFile.h"

#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <set>
#include <sys/stat.h>
#include <utility>
#include <vector>

namespace {

// A converter under one of its names.
using Conversion = std::pair<const char*, int (*)(const char* path, const char* directory)>;

// The reason that a failing call is expected to leave.  `fails` makes the call and returns whether
// it failed; the reason contains `text`.
struct Failing {
    const char* symbol;
    std::function<bool()> fails;
    RAVO_ERROR code;
    std::string text;
};

void Ignore(double /*time*/, double* /*leads*/, bool /*end*/) {}

class Errors : public testing::Test {
  protected:
    Errors() {
        m_directory.Write("one.hea", "one 1 250 4\none.dat 16 100/mV 12 0 0 0 0 none\n");
        m_directory.Write("one.dat", EncodeFormat16({100, 200, 300, 400}));
        m_directory.Write("short.hea", "short 1 250\n");
        m_directory.Write("mat.hea", "mat 1 250 4\nmat.mat 16\n");
        m_directory.Write("lost.hea", "lost 1 250 4\nlost.dat 16\n");
        m_directory.Write("minus.hea", "minus 1 250 -4\nminus.dat 16\n");
        m_directory.Write("minus.dat", "");
        m_directory.Write("huge.hea", "huge 999999999999999 250 4\n");
        m_directory.Write("long.hea", "long 1 0 999999999999999\none.dat 16\n");
        m_directory.Write("eight.hea", "eight 1 250 4\none.dat 8\n");
        m_directory.Write("empty.atr", "");
        m_directory.Write("cut.atr", std::string("\x01\x04", 2));
        m_directory.Write("ended.atr", std::string("\0\0", 2));
        m_directory.Write("few.dcd", std::string(100, '9'));
        m_directory.Write("few.cse", "1 2 3 4 5 6 7 8 9 10 11 12\n1 2 3\n");
        m_directory.Write("rate.txt", "fast\n-1\nstart\n");

        m_directory.Write("start.txt", "500\n1\nLead I\n");
        m_directory.Write("foreign.edf", "no EDF file");
        m_directory.Write("good.edf", Edf("1"));
        m_directory.Write("none.edf", Edf("0"));
        m_directory.Write("cut.edf", Edf("2").substr(0, 600));
        mkfifo(File("pipe").c_str(), 0600);
        g_pszRepository = m_repository.data();
        m_readable = Open("one");
        m_unsupported = Open("eight");
        m_closed = WFDBReadHeader(File("one.hea").data());
    }
    ~Errors() override {
        WFDBFreeHeader(m_readable);
        WFDBFreeHeader(m_unsupported);
        WFDBFreeHeader(m_closed);
        NSTResetNoise();
        NSTSetSignal("");
    }

    std::string File(const std::string& name) const { return m_directory / name; }

    void Expect(const std::vector<Failing>& cases) {
        for (const Failing& failing : cases) {
            char text[1024] = {};
            EXPECT_TRUE(failing.fails()) << failing.symbol << ": " << failing.text;
            EXPECT_EQ(RAVOGetLastError(text, sizeof text), failing.code)
                << failing.symbol << ": " << text;
            EXPECT_NE(std::string(text).find(failing.text), std::string::npos)
                << failing.symbol << ": " << text << " without " << failing.text;
            m_proven.insert(failing.symbol);
        }
    }

    std::vector<Failing> RecordFailures();
    std::vector<Failing> SignalFailures();
    std::vector<Failing> AmplitudeFailures();
    std::vector<Failing> NoiseTestFailures();
    std::vector<Failing> ConverterFailures();
    std::vector<Failing> LoaderFailures();
    std::vector<Failing> MaterialFailures();
    std::vector<Failing> OutputFailures();

    bool LoadSignalFails(const std::string& name) const {
        WFDB_HEADER* header = WFDBReadHeader(File(name + ".hea").data());
        const bool fails = WFDBLoadSignal(m_directory.Path().c_str(), header) == 0;
        WFDBFreeHeader(header);
        return fails;
    }
    static int Next(WFDB_HEADER* header, int frames) {
        double samples[8];
        return WFDBNextSample(header, samples, frames);
    }
    static bool NextAnnotation(WFDB_HEADER* header) {
        WFDB_ANNOTATION annotation;
        return WFDBNextAnnotation(header, &annotation) == 0;
    }
    bool NextAnnotationOf(const std::string& name) const {
        return WFDBLoadAnnotation(File(name).c_str(), m_readable) == 1 &&
               NextAnnotation(m_readable);
    }

    const NoiseTestRecord m_noiseTest;
    Scratch m_directory;
    std::string m_repository = m_directory / "repository";
    WFDB_HEADER* m_readable = nullptr;
    WFDB_HEADER* m_unsupported = nullptr;
    WFDB_HEADER* m_closed = nullptr;
    std::set<std::string> m_proven;

  private:
    static std::string Edf(const std::string& signals) {
        EDFFile file;
        file.Signals.resize(1);
        file.SignalCount = signals;
        file.Samples = {1, 2, 3, 4};
        return file.Encode();
    }
    WFDB_HEADER* Open(const std::string& name) {
        WFDB_HEADER* header = WFDBReadHeader(File(name + ".hea").data());
        WFDBLoadSignal(m_directory.Path().c_str(), header);
        return header;
    }
};

// The failures of a function that reads the file of a path.
std::vector<Failing> FileFailures(const Scratch& directory, const char* symbol,
                                  const std::function<bool(const char*)>& fails) {
    const std::string missing = directory / "missing.txt";
    const std::string pipe = directory / "pipe";
    const std::string folder = directory.Path();
    return {
        {symbol, [=] { return fails(nullptr); }, RAVO_ERROR_ARGUMENT, "given"},
        {symbol, [=] { return fails(missing.c_str()); }, RAVO_ERROR_NO_SUCH_FILE,
         missing + ": No such file or directory"},
        {symbol, [=] { return fails((missing + "/a.txt").c_str()); }, RAVO_ERROR_NO_SUCH_FILE,
         missing},
        {symbol, [=] { return fails(folder.c_str()); }, RAVO_ERROR_NOT_READABLE,
         folder + ": not an ordinary file"},
        {symbol, [=] { return fails(pipe.c_str()); }, RAVO_ERROR_NOT_READABLE,
         pipe + ": not an ordinary file"},
    };
}

void Append(std::vector<Failing>& to, const std::vector<Failing>& more) {
    to.insert(to.end(), more.begin(), more.end());
}

std::vector<Failing> Errors::RecordFailures() {
    const auto readFails = [](const char* path) {
        return WFDBReadHeader(const_cast<char*>(path)) == nullptr;
    };
    const auto read = [=](const char* name) {
        return [=, path = File(name)] { return readFails(path.c_str()); };
    };
    const auto annotationsFail = [this](const char* path) {
        return WFDBLoadAnnotation(path, m_readable) == 0;
    };
    std::vector<Failing> cases = FileFailures(m_directory, "WFDBReadHeader", readFails);
    Append(cases, FileFailures(m_directory, "WFDBLoadAnnotation", annotationsFail));
    Append(
        cases,
        {
            {"WFDBReadHeader", read("short.hea"), RAVO_ERROR_FORMAT,
             "short.hea: line 1: the record's number of samples is missing"},
            {"WFDBReadHeader", read("minus.dat"), RAVO_ERROR_FORMAT,
             "the record's name is missing"},
            {"WFDBReadHeader", read("huge.hea"), RAVO_ERROR_MEMORY, "for 999999999999999 signals"},
            {"WFDBLoadAnnotation", [=] { return annotationsFail(File("empty.atr").c_str()); },
             RAVO_ERROR_FORMAT, "empty.atr"},
            {"WFDBLoadAnnotation", [] { return WFDBLoadAnnotation("a", nullptr) == 0; },
             RAVO_ERROR_ARGUMENT, "header"},
            {"WFDBNextAnnotation", [] { return WFDBNextAnnotation(nullptr, nullptr) == 0; },
             RAVO_ERROR_ARGUMENT, "header"},
            {"WFDBNextAnnotation", [this] { return NextAnnotation(m_closed); },
             RAVO_ERROR_NOTHING_LOADED, "record one: no annotation file is open"},
            {"WFDBNextAnnotation", [this] { return NextAnnotationOf("ended.atr"); }, RAVO_ERROR_END,
             "record one: end of the annotations"},
            {"WFDBNextAnnotation", [this] { return NextAnnotationOf("cut.atr"); },
             RAVO_ERROR_FORMAT, "record one: the annotation file ends without an end mark"},
        });
    return cases;
}

std::vector<Failing> Errors::SignalFailures() {
    const char* directory = m_directory.Path().c_str();
    const auto load = [=](const std::string& name) {
        return [=] { return LoadSignalFails(name); };
    };
    return {
        {"WFDBLoadSignal", [this] { return WFDBLoadSignal(nullptr, m_closed) == 0; },
         RAVO_ERROR_ARGUMENT, "directory"},
        {"WFDBLoadSignal", [=] { return WFDBLoadSignal(directory, nullptr) == 0; },
         RAVO_ERROR_ARGUMENT, "header"},
        {"WFDBLoadSignal", load("mat"), RAVO_ERROR_UNSUPPORTED, "record mat has no signal in a"},
        {"WFDBLoadSignal", load("lost"), RAVO_ERROR_NO_SUCH_FILE, File("lost.dat")},
        {"WFDBNextSample", [] { return Next(nullptr, 1) == 0; }, RAVO_ERROR_ARGUMENT, "header"},
        {"WFDBNextSample", [this] { return Next(m_closed, 1) == 0; }, RAVO_ERROR_NOTHING_LOADED,
         "record one: its signal file is not open"},
        {"WFDBNextSample", [this] { return Next(m_unsupported, 1) == 0; }, RAVO_ERROR_UNSUPPORTED,
         "record eight: signal format 8 cannot be read"},
        {"WFDBNextSample", [this] { return WFDBNextSample(m_readable, nullptr, 1) == 0; },
         RAVO_ERROR_ARGUMENT, "room"},
        {"WFDBNextSample", [this] { return Next(m_readable, 0) == 0; }, RAVO_ERROR_ARGUMENT,
         "room"},
        {"WFDBNextSample", [this] { return Next(m_readable, 5) == 4; }, RAVO_ERROR_END,
         "record one: end of the samples"},
        {"WFDBSeek", [this] { return WFDBSeek(m_readable, -1) == 0; }, RAVO_ERROR_ARGUMENT,
         "record one: there is no second -1"},
        {"WFDBSeek", [this] { return WFDBSeek(m_unsupported, 0) == 0; }, RAVO_ERROR_UNSUPPORTED,
         "format 8"},
    };
}

std::vector<Failing> Errors::AmplitudeFailures() {
    double* amplitudes = nullptr;
    const auto ofPath = [](const char* path) {
        return WFDBSignalAmplitudeEx(const_cast<char*>(path), nullptr) == nullptr;
    };
    const std::string lost = File("lost.hea");
    return {
        {"WFDBSignalAmplitude", [] { return WFDBSignalAmplitude(nullptr, nullptr) == nullptr; },
         RAVO_ERROR_ARGUMENT, "record"},
        {"WFDBSignalAmplitudeEx", [=] { return ofPath(nullptr); }, RAVO_ERROR_ARGUMENT, "record"},
        {"WFDBSignalAmplitudeEx", [=] { return ofPath(lost.c_str()); }, RAVO_ERROR_NO_SUCH_FILE,
         "lost.dat"},
        {"_Z6sigampP11WFDB_HEADERPPd", [this] { return sigamp(m_readable, nullptr) == 0; },
         RAVO_ERROR_ARGUMENT, "place"},
        {"_Z6sigampPKcPPd", [=]() mutable { return sigamp("/missing/a", &amplitudes) == 0; },
         RAVO_ERROR_NO_SUCH_FILE, "/missing/a.hea"},
    };
}

std::vector<Failing> Errors::NoiseTestFailures() {
    const auto run = [=](const char* signal, const char* noise, const char* output) {
        NSTSetSignal(File(signal).c_str());
        NSTResetNoise();
        NSTAddNoise(File(noise).c_str(), 6.0);
        return NSTOutput(File(output).c_str());
    };
    const auto single = [=](std::string signal, std::string noise, std::string output) {
        signal = File(signal), noise = File(noise), output = File(output);
        return nst(signal.data(), noise.data(), output.data(), 6.0);
    };
    return {
        {"NSTOutput", [=] { return run("no", "one", "o") == -4; }, RAVO_ERROR_NO_SUCH_FILE,
         File("no.hea")},
        {"NSTOutput", [=] { return run("one", "lost", "o") == -4; }, RAVO_ERROR_NO_SUCH_FILE,
         File("lost.dat")},
        {"NSTOutput", [=] { return run("one", "one", "no/o") == -8; }, RAVO_ERROR_NO_SUCH_FILE,
         File("no/o.dat")},
        {"NSTOutput", [=] { return run("one", "one", "one") == -8; }, RAVO_ERROR_ARGUMENT,
         File("one.dat") + ": the output is a file of the record"},
        {"_Z3nstv", [] { return nst() == -8; }, RAVO_ERROR_ARGUMENT, "one.dat"},
        {"WFDBNoiseTestExOutput", [=] { return WFDBNoiseTestExOutput(File("one").data()) == 0; },
         RAVO_ERROR_ARGUMENT, "one.dat"},
        {"WFDBNoiseTest",
         [=] {
             return WFDBNoiseTest(File("no").data(), File("one").data(), File("o").data(), 6) == 1;
         },
         RAVO_ERROR_NO_SUCH_FILE, File("no.hea")},
        {"_Z3nstPcS_S_d", [=] { return single("no", "one", "o") == -4; }, RAVO_ERROR_NO_SUCH_FILE,
         File("no.hea")},
        {"_Z3nstPcS_S_d", [=] { return single("one", "one", "one") == -8; }, RAVO_ERROR_ARGUMENT,
         "one.dat"},
    };
}

std::vector<Failing> Errors::ConverterFailures() {
    const auto convert = [=](int (*function)(const char*, const char*), const char* name) {
        return [=] { return function(File(name).c_str(), m_directory.Path().c_str()) == 0; };
    };
    std::vector<Failing> cases;
    for (const auto& [symbol, function] :
         {Conversion("WFDBConvertEDF", WFDBConvertEDF), Conversion("edf2mit", edf2mit)}) {
        Append(
            cases,
            {
                {symbol, [f = function] { return f(nullptr, "/tmp") == 0; }, RAVO_ERROR_ARGUMENT,
                 "path"},
                {symbol, convert(function, "one.dat"), RAVO_ERROR_FORMAT,
                 "one.dat: the name does not end in \".edf\""},
                {symbol, convert(function, "no.edf"), RAVO_ERROR_NO_SUCH_FILE, File("no.edf")},
                {symbol, convert(function, "foreign.edf"), RAVO_ERROR_FORMAT,
                 "foreign.edf: does not begin like an EDF file"},
                {symbol, convert(function, "none.edf"), RAVO_ERROR_FORMAT,
                 "number of signals is \"0"},
                {symbol, convert(function, "cut.edf"), RAVO_ERROR_FORMAT,
                 "cut.edf: ends within the header of 2 signals"},
                {symbol, [=, f = function] { return f(File("good.edf").c_str(), "/missing") == 0; },
                 RAVO_ERROR_NO_SUCH_FILE, "/missing/good.dat"},
            });
    }
    for (const auto& [symbol, function] :
         {Conversion("WFDBConvertAHA", WFDBConvertAHA), Conversion("ahaecg2mit", ahaecg2mit)}) {
        Append(
            cases,
            {
                {symbol, [f = function] { return f(nullptr, "/tmp") == 0; }, RAVO_ERROR_ARGUMENT,
                 "path"},
                {symbol, convert(function, "one.dat"), RAVO_ERROR_FORMAT, "\".txt\""},
                {symbol, convert(function, "no.txt"), RAVO_ERROR_NO_SUCH_FILE, File("no.txt")},
                {symbol, [=, f = function] { return f(File("rate.txt").c_str(), "/missing") == 0; },
                 RAVO_ERROR_NO_SUCH_FILE, "/missing/rate.dat"},
            });
    }
    return cases;
}

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
                "few.cse: line 2 has 3 values and not 12"},
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
