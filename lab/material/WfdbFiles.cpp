#include "lab/material/WfdbFiles.h"

#include "lab/common/Failure.h"
#include "lab/material/MixCheck.h"
#include "lab/material/readers/Files.h"
#include "lab/material/Staging.h"
#include "WFDB/wfdb.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <sys/stat.h>
#include <system_error>

namespace lab {
namespace {

constexpr int32_t kFormat16 = 16;
constexpr int32_t kFormat212 = 212;

struct FreeWfdbHeader {
    void operator()(WFDB_HEADER* header) const { WFDBFreeHeader(header); }
};
using WfdbHeader = std::unique_ptr<WFDB_HEADER, FreeWfdbHeader>;

WfdbHeader ReadWfdbHeader(const std::string& path) {
    std::vector<char> writable(path.begin(), path.end());
    writable.push_back('\0');
    return WfdbHeader(WFDBReadHeader(writable.data()));
}

// The library accepts file names only with a directory.
std::string WithDirectory(const std::string& path) {
    return path.find('/') == std::string::npos ? "./" + path : path;
}

std::string SignalPathOf(const std::string& path, const WFDB_HEADER& header) {
    return DirectoryOf(path) + header.Signal[0].FileName;
}

void RequireSignalFormats(const std::string& path, const WFDB_HEADER& header) {
    const std::string file = header.Signal[0].FileName;
    for (int64_t i = 0; i < header.NumberOfSignals; ++i) {
        const WFDB_SIGNAL& signal = header.Signal[i];
        const int32_t format = signal.Format;
        if (format != kFormat16 && format != kFormat212) {
            Fail(kMaterial, path,
                 Format("signal %lld is stored in format %d, which is not readable.",
                        static_cast<long long>(i), format),
                 "Formats 16 and 212 are: convert the record into one of them.");
        }
        const int32_t firstFormat = header.Signal[0].Format;
        if (file != signal.FileName || format != firstFormat) {
            Fail(kMaterial, path,
                 "spreads its signals over several signal files or formats, which is not readable.",
                 "Convert it into a record with one signal file.");
        }
    }
}

int64_t SamplesPerFrame(const WFDB_HEADER& header) {
    int64_t sum = 0;
    for (int64_t i = 0; i < header.NumberOfSignals; ++i) {
        sum += header.Signal[i].SamplesPerFrame;
    }
    return std::max<int64_t>(sum, 1);
}

int64_t StoredFrames(const WFDB_HEADER& header, int64_t bytes) {
    const int64_t samples = header.Signal[0].Format == kFormat212 ? bytes / 3 * 2 : bytes / 2;
    return samples / SamplesPerFrame(header);
}

// The mix would treat samples that the signal file lacks as silence.
void RequireWholeFile(const std::string& path, const std::string& signalPath,
                      const WFDB_HEADER& header) {
    struct stat status {};
    if (::stat(signalPath.c_str(), &status) != 0) {
        return;
    }
    const int64_t frames = StoredFrames(header, status.st_size);
    const int64_t announced = header.NumberOfSamplesPerSignal;
    if (frames < announced) {
        Fail(kMaterial, path,
             Format("announces %lld frames, but its signal file holds %lld.",
                    static_cast<long long>(announced), static_cast<long long>(frames)),
             "Fetch it again; \"ravo convert\" makes a record of what is there.");
    }
}

// The mix takes the noise sample by sample.
void RequireSameRate(const std::string& signal, const std::string& noise) {
    const int64_t signalRate = ReadWfdbHeader(signal)->SamplingFrequency;
    const int64_t noiseRate = ReadWfdbHeader(noise)->SamplingFrequency;
    if (noiseRate != signalRate) {
        Fail(
            kMaterial, noise,
            Format("has %lld samples per second, the record %lld; a mix takes records of one rate.",
                   static_cast<long long>(noiseRate), static_cast<long long>(signalRate)),
            "--noise of the other commands adds a noise record of any rate, as it is.");
    }
}

void RequireFree(const std::string& output) {
    for (const char* extension : {".hea", ".dat"}) {
        if (std::filesystem::exists(output + extension)) {
            Fail(kCannotWrite, output + extension, "already exists.",
                 "Give another name, or --force to replace the record.");
        }
    }
}

// Moves the files of a mix into place: all of them or none.
void MoveMix(const std::string& from, const std::string& to) {
    for (const char* extension : {".dat", ".hea"}) {
        std::error_code error;
        std::filesystem::rename(from + extension, to + extension, error);
        if (error) {
            Fail(kCannotWrite, to + extension,
                 Format("cannot be written: %s.", error.message().c_str()));
        }
    }
}

[[noreturn]] void FailMix(const std::string& output, const std::string& directory) {
    std::error_code unknown;
    const auto space = std::filesystem::space(directory, unknown);
    const bool isFull = !unknown && space.available == 0;
    Fail(kCannotWrite, output,
         Format("cannot be written%s", isFull ? ": No space left on device." : "."),
         isFull ? "Make room on that disk." : "Is its directory writable?");
}

void RequireTwoSignals(const std::string& path) {
    const WfdbHeader header = ReadWfdbHeader(path);
    const int64_t count = header ? header->NumberOfSignals : 0;
    if (count != 2) {
        Fail(kMaterial, path,
             Format("has %lld signals; noise is mixed into records with two.",
                    static_cast<long long>(count)));
    }
}

// Writing a mix over what it is made from would destroy the record before it is read.
void RequireOtherFiles(const std::string& output, const std::string& source) {
    const WfdbHeader header = ReadWfdbHeader(source);
    for (const std::string& written : {output + ".hea", output + ".dat"}) {
        for (const std::string& read : {source, SignalPathOf(source, *header)}) {
            std::error_code oneIsMissing;
            if (std::filesystem::equivalent(written, read, oneIsMissing)) {
                Fail(kUsage, output, "would overwrite " + Printable(read) + ", which is mixed in.",
                     "Give the mixed record another name.");
            }
        }
    }
}

// The amplitude is the mean of 300 windows without the 15 highest and the 15 lowest, and windows
// that the record does not have count as 0: up to 15 windows measure as silence.
void WarnOfUnmeasurableNoise(const std::string& path) {
    constexpr int64_t kFewestFrames = int64_t{16} * 360;
    const WfdbHeader header = ReadWfdbHeader(path);
    struct stat status {};
    if (::stat(SignalPathOf(path, *header).c_str(), &status) != 0) {
        return;
    }
    const int64_t frames = StoredFrames(*header, status.st_size);
    if (frames < kFewestFrames) {
        Warn(Format("%s holds %lld frames, too few to measure the noise (%lld are needed): the "
                    "noisy segments will not have the wanted ratio",
                    Printable(path).c_str(), static_cast<long long>(frames),
                    static_cast<long long>(kFewestFrames)));
    }
}

} // namespace

std::string HeaderPathOf(const std::string& name) {
    return WithDirectory(Extension(name) == ".hea" ? name : name + ".hea");
}

void RequireWfdbRecord(const std::string& path) {
    RequireFile(path);
    const WfdbHeader header = ReadWfdbHeader(path);
    if (!header) {
        Fail(kMaterial, path, "is not a WFDB header.",
             "Its first line must give the record's name, its number of signals, its sampling\n"
             "      frequency and its number of samples.");
    }
    if (header->NumberOfSignals < 1) {
        Fail(kMaterial, path, "describes no signal stored in a .dat file.",
             "Each signal needs a line that begins with the name of its .dat file.");
    }
    if (header->SamplingFrequency < 1 || header->NumberOfSamplesPerSignal < 1) {
        const int64_t frequency = header->SamplingFrequency;
        const int64_t samples = header->NumberOfSamplesPerSignal;
        Fail(kMaterial, path,
             Format("announces %lld samples at %lld per second; both must be 1 or more.",
                    static_cast<long long>(samples), static_cast<long long>(frequency)),
             "Correct the header's first line.");
    }
    RequireSignalFormats(path, *header);
    const std::string signalPath = SignalPathOf(path, *header);
    RequireFile(signalPath,
                "The header " + Printable(path) + " names it; it must lie in the same folder.");
    RequireWholeFile(path, signalPath, *header);
}

void MixNoise(const std::string& signal, const std::vector<std::string>& noises,
              const std::vector<double>& ratios, const std::string& output, bool overwrites) {
    RequireWfdbRecord(signal);
    RequireTwoSignals(signal);
    RequireOtherFiles(output, signal);
    NSTSetSignal(signal.c_str());
    NSTResetNoise();
    for (std::size_t i = 0; i < noises.size(); ++i) {
        RequireWfdbRecord(noises[i]);
        RequireOtherFiles(output, noises[i]);
        RequireSameRate(signal, noises[i]);
        WarnOfUnmeasurableNoise(noises[i]);
        NSTAddNoise(noises[i].c_str(), ratios.size() == 1 ? ratios[0] : ratios[i]);
    }
    if (!overwrites) {
        RequireFree(output);
    }
    const TemporaryDirectory working(DirectoryOf(output));
    const std::string mix = working.Path() + "/" + output.substr(DirectoryOf(output).size());
    const int result = NSTOutput(mix.c_str());
    NSTResetNoise();
    if (result != 0) {
        FailMix(output, working.Path());
    }
    MoveMix(mix, output);
    WarnOfWrappedSamples(signal, output + ".hea");
}

} // namespace lab
