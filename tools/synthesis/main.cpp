// ravo-make-record: writes the synthetic demonstration record.

#include "lab/common/RunProgram.h"
#include "tools/synthesis/Demonstration.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <string>

namespace {

constexpr int kUsageError = 1;
constexpr int kCannotWrite = 6;

std::string WithoutExtension(const std::string& path) {
    const std::string extension = ".hea";
    const bool hasIt =
        path.size() > extension.size() &&
        path.compare(path.size() - extension.size(), extension.size(), extension) == 0;
    return hasIt ? path.substr(0, path.size() - extension.size()) : path;
}

// The name is a field of the header, which readers of records take apart at blanks and more.
bool NamesRecord(const std::string& path) {
    constexpr const char* kNameCharacters =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
    const std::string name = path.substr(path.rfind('/') + 1);
    return !name.empty() && name.find_first_not_of(kNameCharacters) == std::string::npos;
}

int Run(int argc, char** argv) {
    CLI::App app{"Writes a synthetic eight-lead rest ECG as a WFDB record.", "ravo-make-record"};
    std::string path;
    int seconds = 10;
    int rate = 500;
    double beatsPerMinute = 72.0;
    int format = 16;
    app.set_version_flag("--version", "ravo-make-record " RAVO_VERSION);
    app.add_option("RECORD", path, "Record to write: RECORD.hea and RECORD.dat")->required();
    app.add_option("--seconds", seconds, "Length in seconds")
        ->check(CLI::Range(1, 3600))
        ->capture_default_str();
    app.add_option("--rate", rate, "Samples per second")
        ->check(CLI::Range(100, 4000))
        ->capture_default_str();
    app.add_option("--heart-rate", beatsPerMinute,
                   "Beats per minute, rounded to a whole number of beats in the record")
        ->check(CLI::Range(30.0, 180.0))
        ->capture_default_str();
    app.add_option("--format", format, "Signal format, 16 or 212")
        ->check(CLI::IsMember({16, 212}))
        ->capture_default_str();
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kUsageError;
    }

    const std::string stem = WithoutExtension(path);
    if (!NamesRecord(stem)) {
        std::fprintf(stderr,
                     "ravo-make-record: \"%s\" names no record: letters, digits, - and _ are "
                     "allowed.\n",
                     path.c_str());
        return kUsageError;
    }
    const auto record = synthesis::MakeDemonstration(rate, seconds, beatsPerMinute);
    const auto signalFormat =
        format == 16 ? synthesis::SignalFormat::k16 : synthesis::SignalFormat::k212;
    if (!synthesis::WriteRecord(record, stem, signalFormat)) {
        std::fprintf(stderr,
                     "ravo-make-record: %s: cannot be written. Is the directory there and "
                     "writable, with room left?\n",
                     path.c_str());
        return kCannotWrite;
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    return lab::RunProgram("ravo-make-record", kCannotWrite, [&] { return Run(argc, argv); });
}
