#pragma once

#include "api/ravo.h"
#include "tests/support/Encoding.h"
#include "tests/support/Files.h"
#include "tests/support/NoiseTestRecord.h"
#include "tests/WFDB/EDFFile.h"

#include <functional>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <sys/stat.h>
#include <vector>

// The reason that a failing call is expected to leave.  `fails` makes the call and returns whether
// it failed; the reason contains `text`.
struct Failing {
    const char* symbol;
    std::function<bool()> fails;
    RAVO_ERROR code;
    std::string text;
};

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
inline std::vector<Failing> FileFailures(const Scratch& directory, const char* symbol,
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

inline void Append(std::vector<Failing>& to, const std::vector<Failing>& more) {
    to.insert(to.end(), more.begin(), more.end());
}
