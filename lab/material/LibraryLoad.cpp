#include "lab/material/LibraryLoad.h"

#include "lab/common/Failure.h"
#include "lab/material/Builtin.h"
#include "lab/material/LibraryEdf.h"
#include "lab/material/LoadedSamples.h"
#include "lab/material/Mapping.h"
#include "lab/material/NativeText.h"
#include "lab/material/Noise.h"
#include "lab/material/readers/Units.h"
#include "lab/material/Staging.h"
#include "lab/material/Waveforms.h"
#include "lab/material/WfdbFiles.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>

namespace lab {
namespace {

constexpr int64_t kLowestRate = 92;
constexpr int64_t kHighestRate = 20000;

struct FreeEcgHeader {
    void operator()(ECG_HEADER* header) const { RAVOFreeECGHeader(header); }
};
using EcgHeader = std::unique_ptr<ECG_HEADER, FreeEcgHeader>;

// ---- WFDB ---------------------------------------------------------------------------------------

bool IsLibrarySignal(const WfdbSignalLine& line, const WfdbSignalLine& first) {
    constexpr double kLargestBaseline = 2e9;
    const bool isUnderstood = !UnitsPerMillivolt(line.unit) || IsLibraryUnit(line.unit);
    return line.file == first.file && line.file.find(".dat") != std::string::npos &&
           line.format == first.format && (line.format == 16 || line.format == 212) &&
           line.samplesPerFrame == 1 && line.skew == 0 && line.offset == 0 && isUnderstood &&
           std::isfinite(line.gain) && std::fabs(line.baseline) < kLargestBaseline &&
           line.baseline == std::floor(line.baseline);
}

// The library drops the samples of a group of bytes that is cut short.
bool EndsWithinGroup(const WfdbHeader& header) {
    const WfdbSignalLine& first = header.signals[0];
    const ByteFile file(DirectoryOf(header.path) + first.file,
                        "The header " + Printable(header.path) +
                            " names it; it must lie in the same folder.");
    return first.format == 212 && file.Size() % 3 == 2;
}

void TakeHeader(Record& record, const ECG_HEADER& header) {
    record.rate = header.SamplingFrequency;
    record.samples = header.NumberOfSamples;
    for (int64_t i = 0; i < header.NumberOfSignals; ++i) {
        record.signals.push_back({header.Signal[i].Description, header.Signal[i].Lead});
    }
}

void TakeDate(Record& record, const WFDB_HEADER& header) {
    const std::string time = header.BaseTime;
    const std::string date = header.BaseDate;
    record.date = Printable(date + (date.empty() || time.empty() ? "" : " ") + time);
}

void WarnIfShortened(Record& record, const WFDB_HEADER& header) {
    const int64_t announced = header.NumberOfSamplesPerSignal;
    if (record.samples < announced) {
        record.warnings.push_back(
            Format("%s: %lld of %lld frames are loaded", Printable(record.source).c_str(),
                   static_cast<long long>(record.samples), static_cast<long long>(announced)));
    }
}

[[noreturn]] void FailLoading(const std::string& path) {
    Fail(kMaterial, path, "cannot be loaded: its contents are not what its format demands.",
         "Is the file complete? --format says how to read it.");
}

// Accepts units that the library knows; it takes all others for millivolts.
void RequireVoltages(const Record& record, const WfdbHeader& whole) {
    for (std::size_t i = 0; i < record.signals.size(); ++i) {
        const std::string& unit = whole.signals[i].unit;
        if (record.signals[i].lead != ECG_LEAD_NONE && !UnitsPerMillivolt(unit)) {
            FailUnit(record, i, unit);
        }
    }
}

// Restores the descriptions that the library cuts, and maps leads by further names and by the
// user's options.
void MapLeads(Record& record, const MaterialRequest& request, ECG_HEADER& header,
              const WfdbHeader* whole) {
    for (std::size_t i = 0; whole != nullptr && i < record.signals.size(); ++i) {
        record.signals[i].description = whole->signals[i].description;
    }
    MapOtherNames(record.signals);
    MapSignals(record, request.map);
    DropRepeatedClaims(record);
    if (whole != nullptr) {
        RequireVoltages(record, *whole);
    }
    for (std::size_t i = 0; i < record.signals.size(); ++i) {
        header.Signal[i].Lead = record.signals[i].lead;
    }
    RAVOUpdateECGHeaderMappingLead(&header);
}

// Loads a WFDB record, original or converted: its signals have descriptions and can be mapped, and
// its samples are read from the record.
void LoadMapped(Record& record, const MaterialRequest& request, const EcgHeader& header,
                const WfdbHeader* whole) {
    if (!header) {
        FailLoading(record.source);
    }
    TakeHeader(record, *header);
    MapLeads(record, request, *header, whole);
    if (header->WFDBHeader != nullptr) {
        TakeDate(record, *header->WFDBHeader);
        record.signalFormat = record.signals.empty() ? 0 : header->WFDBHeader->Signal[0].Format;
        WarnIfShortened(record, *header->WFDBHeader);
    }
    if (!RAVOLoadMITDatabase(header.get())) {
        Fail(kMaterial, record.source, "does not fit into memory.");
    }
}

void LoadWfdb(Record& record, const MaterialRequest& request) {
    record.source = HeaderPathOf(request.name);
    RequireWfdbRecord(record.source);
    const WfdbHeader whole = ParseWfdbHeader(record.source);
    record.files = {record.source, DirectoryOf(record.source) + whole.signals[0].file};
    const EcgHeader header(RAVOLoadMITHeader(record.source.c_str()));
    LoadMapped(record, request, header, &whole);
}

// The mix is written into a directory of its own: the library's own loader shares one temporary
// record between all processes.
void LoadNoiseMix(Record& record, const MaterialRequest& request) {
    record.source = HeaderPathOf(request.name);
    const std::string noise = HeaderPathOf(request.noise);
    const TemporaryDirectory directory;
    const std::string mix = directory.Path() + "/mix";
    MixNoise(record.source, {noise}, {request.signalToNoise}, mix, false);
    for (const std::string& path : {record.source, noise}) {
        record.files.push_back(path);
        record.files.push_back(DirectoryOf(path) + ParseWfdbHeader(path).signals[0].file);
    }
    const WfdbHeader whole = ParseWfdbHeader(record.source);
    const EcgHeader header(RAVOLoadMITHeader((mix + ".hea").c_str()));
    LoadMapped(record, request, header, &whole);
    record.noise = Format("%s at %g dB", StemOf(request.noise).c_str(), request.signalToNoise);
    record.name += " with " + record.noise;
}

// ---- Other kinds --------------------------------------------------------------------------------

// The repository is private and temporary, so that a record converted earlier is never used for a
// file that has changed.
void LoadEdf(Record& record, const MaterialRequest& request, WaveformType type) {
    const EdfHeader whole = ParseEdfHeader(ByteFile(request.name));
    RequireLibraryEdf(request.name, whole);
    const Staging staging(request.name, ".edf");
    std::string repository = staging.Directory();
    char* const former = g_pszRepository;
    g_pszRepository = repository.data();
    const EcgHeader header(LoadDatabaseEDF(staging.Path().c_str(), type));
    g_pszRepository = former;
    record.files = {request.name};
    LoadMapped(record, request, header, nullptr);
    g_WaveformType = type;
    TakeEdfOutputs(record, whole, type);
}

void LoadUnmapped(Record& record, const MaterialRequest& request, ECG_HEADER* (*load)(const char*),
                  const char* extension) {
    if (!request.map.empty()) {
        Fail(kUsage, "--map", "has no meaning here: the leads of this format are fixed.");
    }
    RequireFile(request.name);
    const Staging staging(request.name, extension);
    const EcgHeader header(load(staging.Path().c_str()));
    if (!header) {
        FailLoading(request.name);
    }
    record.files = {request.name};
    TakeHeader(record, *header);
}

// A lead without a value is not supplied; one whose values are all 0 is.
void LoadNative(Record& record, const MaterialRequest& request) {
    LoadUnmapped(record, request, RAVOLoadDatabaseTarnwick, ".txt");
    const NativeText text = InspectNativeText(request.name);
    record.warnings = text.warnings;
    for (Signal& signal : record.signals) {
        const auto output = static_cast<std::size_t>(signal.lead);
        signal.lead = output < kOutputCount && text.hasValues[output] ? signal.lead : ECG_LEAD_NONE;
        signal.cut = output < kOutputCount ? text.cut[output] : 0;
        record.isCut = record.isCut || signal.cut > 0;
    }
}

void LoadBuiltin(Record& record, const MaterialRequest& request) {
    if (!request.map.empty()) {
        Fail(kUsage, "--map", "has no meaning here: the leads of built-in records are fixed.");
    }
    const int number = FindBuiltinRecord(request.name);
    record.noise = request.builtinNoise == "none" ? "" : request.builtinNoise;
    const int noise = FindBuiltinNoise(record.noise);
    const EcgHeader header(RAVOLoadDatabaseCTS_CSE(number, noise));
    if (!header) {
        Fail(kMaterial, request.name, "cannot be loaded: memory was refused.");
    }
    TakeHeader(record, *header);
    record.name = header->RecordName;
    SetLibraryNoise(record.noise.empty() ? std::vector<double>() : BuiltinNoiseSamples(noise));
    RAVO_BUILTIN_RECORD information{};
    const bool isStandIn = RAVOGetBuiltinRecord(number, &information) && information.Licensed == 0;
    record.origin = isStandIn ? "stand-in" : "licensed";
    if (isStandIn) {
        record.warnings.push_back(
            record.name + " is a stand-in made from published definitions, not the licensed "
                          "record; see \"ravo list\"");
    }
}

void LoadAha(Record& record, const MaterialRequest& request) {
    const std::string extension = Extension(request.name);
    const bool isText = extension == ".txt" || extension == ".csv";
    LoadUnmapped(record, request, RAVOLoadDatabaseAHA, isText ? ".txt" : ".ecg");
}

void LoadCse(Record& record, const MaterialRequest& request) {
    const bool isBinary = Extension(request.name) == ".dcd";
    LoadUnmapped(record, request, RAVOLoadDatabaseCSE, isBinary ? ".dcd" : ".txt");
}

} // namespace

bool IsLibraryRecord(const WfdbHeader& header) {
    if (!header.segments.empty() || !header.isPlainText || header.frames < 1 ||
        !header.rate.IsWhole() || header.rate.numerator < kLowestRate ||
        header.rate.numerator > kHighestRate) {
        return false;
    }
    return std::all_of(header.signals.begin(), header.signals.end(),
                       [&](const WfdbSignalLine& line) {
                           return IsLibrarySignal(line, header.signals[0]);
                       }) &&
           !EndsWithinGroup(header);
}

void LoadWfdbFile(Record& record, const std::string& path) {
    const EcgHeader header(RAVOLoadMITHeader(path.c_str()));
    if (!header) {
        FailLoading(record.source);
    }
    record.rate = header->SamplingFrequency;
    record.samples = header->NumberOfSamples;
    WarnIfShortened(record, *header->WFDBHeader);
    if (!RAVOLoadMITDatabase(header.get())) {
        Fail(kMaterial, record.source, "does not fit into memory.");
    }
}

void LoadByLibrary(Record& record, const MaterialRequest& request, MaterialKind kind) {
    record.origin = kind == MaterialKind::kWaveform ? "waveform" : "file";
    SetLibraryNoise({});
    switch (kind) {
    case MaterialKind::kWaveform:
        LoadWaveform(record, request);
        break;
    case MaterialKind::kBuiltin:
        LoadBuiltin(record, request);
        break;
    case MaterialKind::kWfdb:
        request.noise.empty() ? LoadWfdb(record, request) : LoadNoiseMix(record, request);
        break;
    case MaterialKind::kEdf:
        LoadEdf(record, request, MATERIAL_EDF);
        break;
    case MaterialKind::kEdfFourChest:
        LoadEdf(record, request, MATERIAL_EDF_FOUR_CHEST);
        break;
    case MaterialKind::kAha:
        LoadAha(record, request);
        break;
    case MaterialKind::kCse:
        LoadCse(record, request);
        break;
    case MaterialKind::kNative:
        LoadNative(record, request);
        break;
    case MaterialKind::kCsv:
        FailLoading(request.name);
    }
    record.type = static_cast<WaveformType>(g_WaveformType);
}

} // namespace lab
