#include "lab/common/Failure.h"
#include "lab/material/Recognition.h"
#include "lab/material/Record.h"
#include "lab/material/Staging.h"
#include "tools/ravo/commands/Commands.h"

#include "WFDB/wfdb.h"

#include <CLI/CLI.hpp>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>

namespace cli {

using namespace lab;

namespace {

namespace fs = std::filesystem;

struct ConvertOptions {
    std::string file;
    std::string directory;
    std::string format;
};

void RequireDirectory(const std::string& directory) {
    std::error_code error;
    fs::create_directories(directory, error);
    if (!fs::is_directory(directory)) {
        Fail(kCannotWrite, directory, "is no directory and cannot be made one.");
    }
}

void CopyInto(const std::string& from, const std::string& to) {
    std::error_code error;
    fs::copy_file(from, to, fs::copy_options::overwrite_existing, error);
    if (error) {
        Fail(kCannotWrite, to, Format("cannot be written: %s.", error.message().c_str()));
    }
}

void ConvertEdf(const ConvertOptions& options) {
    RequireFile(options.file);
    const Staging staging(options.file, ".edf");
    const std::string stem = staging.Path().substr(0, staging.Path().find_last_of('.'));
    if (WFDBConvertEDF(staging.Path().c_str(), staging.Directory().c_str()) == 0) {
        Fail(kMaterial, options.file, "is not a complete EDF file.");
    }
    const std::string target = options.directory + "/" + stem.substr(stem.find_last_of('/') + 1);
    CopyInto(stem + ".dat", target + ".dat");
    CopyInto(stem + ".hea", target + ".hea");
    std::printf("%s.hea\n", target.c_str());
}

// The converter writes no header; the one that belongs to its signal file is made here.
void WriteAhaHeader(const std::string& path, const std::string& name, std::uintmax_t frames) {
    std::ofstream header(path);
    header << name << " 2 250 " << frames << "\n"
           << name << ".dat 212 400/mV 12 0 0 0 0 ECG 1\n"
           << name << ".dat 212 400/mV 12 0 0 0 0 ECG 2\n";
    header.close();
    if (!header) {
        Fail(kCannotWrite, path, "cannot be written.");
    }
}

// The converter deletes the file of its own output's name in the current directory, so it works
// on plain paths and with the current directory out of its reach.
void ConvertAha(const ConvertOptions& options) {
    RequireFile(options.file);
    const Staging staging(options.file, ".txt");
    const TemporaryDirectory elsewhere;
    const std::string stem = staging.Path().substr(0, staging.Path().find_last_of('.'));
    const std::string target =
        fs::absolute(options.directory).string() + "/" + stem.substr(stem.find_last_of('/') + 1);
    const fs::path former = fs::current_path();
    fs::current_path(elsewhere.Path());
    WFDBConvertAHA(staging.Path().c_str(), staging.Directory().c_str());
    fs::current_path(former);

    constexpr std::uintmax_t kBytesPerFrame = 3;
    std::error_code error;
    const std::uintmax_t bytes = fs::file_size(stem + ".dat", error);
    if (error || bytes < kBytesPerFrame) {
        Fail(kMaterial, options.file, "is not an AHA text file.",
             "Each line must read SAMPLE,SAMPLE,\"MARK\" and end in LF alone.");
    }
    CopyInto(stem + ".dat", target + ".dat");
    WriteAhaHeader(target + ".hea", fs::path(target).filename().string(), bytes / kBytesPerFrame);
    std::printf("%s.hea\n", target.c_str());
}

int Convert(const ConvertOptions& options) {
    const MaterialKind kind = Recognise(options.file, options.format);
    RequireDirectory(options.directory);
    if (kind == MaterialKind::kEdf) {
        ConvertEdf(options);
    } else if (kind == MaterialKind::kAha && Extension(options.file) != ".ecg") {
        ConvertAha(options);
    } else {
        Fail(kMaterial, options.file, "is in a format that has no converter.",
             "EDF files and AHA text files are converted.");
    }
    return kDone;
}

} // namespace

void AddConvert(CLI::App& app, Action& action) {
    auto options = std::make_shared<ConvertOptions>();
    CLI::App* command =
        app.add_subcommand("convert", "Convert an EDF or AHA text file into a WFDB record");
    command->add_option("FILE", options->file, "File to convert")->required();
    command->add_option("DIRECTORY", options->directory, "Where the record goes")->required();
    command->add_option("--format", options->format, "How to read the file: edf or aha")
        ->check(CLI::IsMember({"edf", "aha"}));
    command->callback([options, &action] { action = [options] { return Convert(*options); }; });
}

} // namespace cli
