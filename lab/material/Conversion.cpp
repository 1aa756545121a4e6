#include "lab/material/Conversion.h"

#include "lab/common/Failure.h"
#include "lab/material/Annotations.h"
#include "lab/material/CsvWriter.h"
#include "lab/material/LeadNames.h"
#include "lab/material/OpenMaterial.h"
#include "lab/material/readers/AnnotationFile.h"
#include "lab/material/RecordWriter.h"
#include "lab/material/Staging.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace lab {
namespace {

namespace fs = std::filesystem;

constexpr std::array<const char*, 4> kExtensions = {".hea", ".dat", ".atr", ".csv"};

// ---- Names --------------------------------------------------------------------------------------

bool IsPlain(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '-' ||
           c == '_';
}

// Blanks and dots end a name in a record's header.
std::string PlainName(std::string name) {
    std::replace_if(
        name.begin(), name.end(), [](char c) { return !IsPlain(c); }, '_');
    return name.empty() ? "record" : name.substr(0, 200);
}

bool IsTaken(const std::string& directory, const std::string& name) {
    return std::any_of(kExtensions.begin(), kExtensions.end(), [&](const char* extension) {
        std::error_code ignored;
        return fs::exists(fs::symlink_status(directory + "/" + name + extension, ignored));
    });
}

std::string FreeName(const ConversionRequest& request, const std::string& source) {
    std::string name = request.name.empty() ? PlainName(source) : request.name;
    if (!std::all_of(name.begin(), name.end(), IsPlain)) {
        Fail(kUsage, "--name " + name, "cannot name a record.", "Letters, digits, - and _ can.");
    }
    if (request.overwrites || !IsTaken(request.directory, name)) {
        return name;
    }
    if (!request.name.empty()) {
        Fail(kCannotWrite, request.directory + "/" + name, "already exists.",
             "Give another --name, or --force to replace it.");
    }
    int number = 2;
    while (IsTaken(request.directory, name + "-" + std::to_string(number))) {
        ++number;
    }
    return name + "-" + std::to_string(number);
}

// The folder of the record. A folder that was created for it is removed again if it stays empty.
class Target {
  public:
    explicit Target(const std::string& path) : m_path(path), m_isMade(!fs::exists(path)) {
        std::error_code error;
        fs::create_directories(path, error);
        if (!fs::is_directory(path)) {
            Fail(kCannotWrite, path, "is not a directory and cannot be created.");
        }
    }
    ~Target() {
        if (m_isMade) {
            std::error_code holdsSomething;
            fs::remove(m_path, holdsSomething);
        }
    }
    Target(const Target&) = delete;
    Target& operator=(const Target&) = delete;

  private:
    std::string m_path;
    bool m_isMade;
};

// ---- Contents -----------------------------------------------------------------------------------

std::vector<std::size_t> ChosenSignals(const OpenedMaterial& material, bool takesAll) {
    std::vector<std::size_t> signals = material.record.FeedingSignals();
    if (takesAll) {
        signals.resize(material.record.signals.size());
        for (std::size_t i = 0; i < signals.size(); ++i) {
            signals[i] = i;
        }
    }
    if (signals.empty()) {
        Fail(kMaterial, material.record.source, "has no signal whose description names a lead.",
             "--all converts the others too; --map SIGNAL=LEAD gives one a lead.");
    }
    return signals;
}

// A signal that the user has mapped gets its lead's name, so that the mapping is kept.
std::string WrittenName(const Signal& signal) {
    return signal.lead == ECG_LEAD_NONE || LeadOfDescription(signal.description) == signal.lead
               ? signal.description
               : LeadName(signal.lead);
}

Rate FrameRate(const SourceRecord& source, const std::vector<std::size_t>& signals) {
    Rate rate = source.signals[signals[0]].rate;
    for (const std::size_t i : signals) {
        rate = CommonRate(rate, source.signals[i].rate);
    }
    return rate;
}

std::vector<WrittenSignal> Describe(OpenedMaterial& material,
                                    const std::vector<std::size_t>& signals, const Rate& rate) {
    const SourceRecord& source = material.reader->Record();
    std::vector<Survey> surveys;
    for (const std::size_t i : signals) {
        surveys.emplace_back(source.signals[i]);
    }
    Samples block;
    for (material.reader->Begin(signals); material.reader->Read(block);) {
        for (std::size_t i = 0; i < block.size(); ++i) {
            surveys[i].Look(block[i]);
        }
    }
    std::vector<WrittenSignal> written;
    for (std::size_t i = 0; i < signals.size(); ++i) {
        const SourceSignal& signal = source.signals[signals[i]];
        const std::string name = WrittenName(material.record.signals[signals[i]]);
        const double perFrame = signal.rate.PerSecond() / rate.PerSecond();
        written.push_back({name, signal.isVoltage ? "mV" : signal.unit, std::llround(perFrame),
                           surveys[i].Choose()});
    }
    return written;
}

std::string StartOf(const OpenedMaterial& material) {
    const SourceRecord& source = material.reader->Record();
    return material.record.skippedSeconds > 0.0 || source.time.empty()
               ? ""
               : source.time + (source.date.empty() ? "" : " " + source.date);
}

// The annotations, timed by the frames that are written.
std::vector<SourceAnnotation> WrittenAnnotations(const OpenedMaterial& material, const Rate& rate) {
    std::vector<SourceAnnotation> annotations;
    const double skipped = material.record.skippedSeconds;
    const bool isSameRate = material.reader->Record().frameRate == rate && skipped == 0.0;
    for (SourceAnnotation annotation : ReadAnnotations(material)) {
        const double seconds = annotation.seconds - skipped;
        if (!isSameRate) {
            annotation.sample = std::llround(seconds * rate.PerSecond());
        }
        if (annotation.sample >= 0) {
            annotations.push_back(annotation);
        }
    }
    return annotations;
}

void WriteAnnotations(const OpenedMaterial& material, const Rate& rate, const std::string& path) {
    const auto annotations = WrittenAnnotations(material, rate);
    if (annotations.empty()) {
        return;
    }
    std::ofstream file(path, std::ios::binary);
    file << EncodeAnnotations(annotations);
    file.close();
    if (!file) {
        Fail(kCannotWrite, path, "cannot be written.", "Is there room on its disk?");
    }
}

void WriteRecord(OpenedMaterial& material, const std::vector<std::size_t>& signals,
                 const std::string& directory, const std::string& name) {
    const Rate rate = FrameRate(material.reader->Record(), signals);
    RecordWriter writer(directory, name, rate, Describe(material, signals, rate));
    Samples block;
    for (material.reader->Begin(signals); material.reader->Read(block);) {
        writer.Write(block);
    }
    writer.Finish(StartOf(material));
    WriteAnnotations(material, rate, directory + "/" + name + ".atr");
}

void WriteCsv(OpenedMaterial& material, const std::vector<std::size_t>& signals,
              const std::string& directory, const std::string& name) {
    const SourceRecord& source = material.reader->Record();
    std::vector<std::string> names;
    for (const std::size_t i : signals) {
        const Signal& signal = material.record.signals[i];
        const std::string unit =
            source.signals[i].isVoltage ? "" : " [" + source.signals[i].unit + "]";
        names.push_back(WrittenName(signal) + unit);
        if (source.signals[i].rate != source.signals[signals[0]].rate) {
            Fail(kUsage, "--csv", "takes signals of one rate.",
                 "Leave --all out, or convert into a WFDB record.");
        }
    }
    CsvWriter writer(directory + "/" + name + ".csv", names, source.signals[signals[0]].rate);
    Samples block;
    for (material.reader->Begin(signals); material.reader->Read(block);) {
        writer.Write(block);
    }
    writer.Finish();
}

// Also removes the older record's files of that name: its annotations would be taken for the new
// record's.
void MoveInto(const ConversionRequest& request, const std::string& from, const std::string& name) {
    for (const char* extension : kExtensions) {
        const std::string written = from + "/" + name + extension;
        const std::string target = request.directory + "/" + name + extension;
        std::error_code error;
        if (fs::exists(written)) {
            fs::rename(written, target, error);
        } else if (!request.isCsv && std::strcmp(extension, ".csv") != 0) {
            fs::remove(target, error);
        }
        if (error) {
            Fail(kCannotWrite, target, Format("cannot be written: %s.", error.message().c_str()));
        }
    }
}

} // namespace

Converted ConvertMaterial(const ConversionRequest& request) {
    OpenedMaterial material = OpenMaterial(request.material);
    const auto signals = ChosenSignals(material, request.takesAll);
    const Target target(request.directory);
    const std::string name = FreeName(request, material.record.name);
    const TemporaryDirectory working(request.directory);
    const auto write = request.isCsv ? WriteCsv : WriteRecord;
    write(material, signals, working.Path(), name);
    MoveInto(request, working.Path(), name);
    return {request.directory + "/" + name + (request.isCsv ? ".csv" : ".hea"),
            material.record.warnings};
}

} // namespace lab
