// The failing calls of records, their signals and annotations, of noise tests and of converters.
#include "api/ravo.h"
#include "Errors.h"

#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace {

// A converter under one of its names.
using Conversion = std::pair<const char*, int (*)(const char* path, const char* directory)>;

} // namespace

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
