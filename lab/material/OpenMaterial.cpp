#include "lab/material/OpenMaterial.h"

#include "lab/common/Failure.h"
#include "lab/material/LeadNames.h"
#include "lab/material/LibraryLoad.h"
#include "lab/material/LoadedSamples.h"
#include "lab/material/Mapping.h"
#include "lab/material/MemoryReader.h"
#include "lab/material/Noise.h"
#include "lab/material/readers/CsvReader.h"
#include "lab/material/readers/EdfReader.h"
#include "lab/material/readers/UnitReader.h"
#include "lab/material/readers/WfdbReader.h"
#include "lab/material/WfdbFiles.h"

#include <algorithm>
#include <cmath>

namespace lab {
namespace {

constexpr int kSecondsOfEndless = 100;

bool IsFile(MaterialKind kind) {
    return kind != MaterialKind::kWaveform && kind != MaterialKind::kBuiltin;
}

bool IsLibraryEdf(const MaterialRequest& request, MaterialKind kind) {
    return kind == MaterialKind::kEdfFourChest || (kind == MaterialKind::kEdf && request.asEdf);
}

bool HasOwnReader(const MaterialRequest& request, MaterialKind kind) {
    return (kind == MaterialKind::kWfdb && request.noise.empty()) || kind == MaterialKind::kCsv ||
           (kind == MaterialKind::kEdf && !request.asEdf);
}

bool LacksSamples(const WfdbHeader& header) {
    const auto reader = OpenWfdb(header);
    if (reader->Record().isCut) {
        return true;
    }
    std::vector<std::size_t> all(header.signals.size());
    for (std::size_t i = 0; i < all.size(); ++i) {
        all[i] = i;
    }
    Samples block;
    for (reader->Begin(all); reader->Read(block);) {
        for (const std::vector<double>& row : block) {
            if (std::any_of(row.begin(), row.end(), [](double value) { return value != value; })) {
                return true;
            }
        }
    }
    return false;
}

// ---- Sources ------------------------------------------------------------------------------------

// The samples that the library has loaded, of the leads that the record supplies.
std::unique_ptr<SourceReader> Captured(const Record& record) {
    SourceRecord source;
    source.name = record.name;
    source.path = record.source;
    source.files = record.files;
    source.frameRate = MakeRate(record.rate, 1);
    Samples samples(record.signals.size());
    const double seconds = record.isEndless ? kSecondsOfEndless : std::ceil(record.Seconds());
    ForEachCleanSample(0, static_cast<int>(seconds), [&](const double* leads) {
        for (std::size_t i = 0; i < samples.size(); ++i) {
            const auto lead = static_cast<std::size_t>(record.signals[i].lead);
            samples[i].push_back(lead < kOutputCount ? leads[LeadOfOutput(lead)] : 0.0);
        }
    });
    for (std::size_t i = 0; i < samples.size(); ++i) {
        SourceSignal& signal = source.signals.emplace_back();
        signal.description = record.signals[i].description;
        signal.rate = source.frameRate;
        signal.samples = static_cast<int64_t>(samples[i].size());
        signal.cut = record.signals[i].cut;
        // Built-in records, CSE and native files hold whole microvolts, AHA files 400 to the
        // millivolt.
        signal.gain = record.type == MATERIAL_AHA ? 400.0 : 1000.0;
    }
    return ReadFromMemory(std::move(source), std::move(samples));
}

std::unique_ptr<SourceReader> OpenOwn(const MaterialRequest& request, MaterialKind kind,
                                      const std::string& path) {
    if (kind == MaterialKind::kWfdb) {
        auto reader = OpenWfdb(path);
        return request.unit ? WithUnit(std::move(reader), *request.unit) : std::move(reader);
    }
    if (kind == MaterialKind::kEdf) {
        return OpenEdf(path, request.unit);
    }
    CsvOptions options;
    options.rate = request.rate;
    options.unit = request.unit;
    return OpenCsv(path, options);
}

void TakeSource(Record& record, const SourceRecord& source) {
    record.origin = "file";
    record.files = source.files;
    record.warnings = source.warnings;
    record.isCut = source.isCut;
    record.date = Printable(source.date + (source.date.empty() || source.time.empty() ? "" : " ") +
                            source.time);
    for (const SourceSignal& signal : source.signals) {
        record.signals.push_back({signal.description, LeadOfDescription(signal.description)});
    }
}

// The library's loaders do not handle gain, offset and noise: they load the bare material.
MaterialRequest Bare(MaterialRequest request) {
    request.builtinNoise.clear();
    return request;
}

} // namespace

std::vector<ECG_Lead> OpenedMaterial::Leads() const {
    std::vector<ECG_Lead> leads;
    for (const Signal& signal : record.signals) {
        leads.push_back(signal.lead);
    }
    return leads;
}

bool IsForLibrary(const MaterialRequest& request, MaterialKind kind) {
    Treatment treatment = TreatmentOf(request);
    if (kind == MaterialKind::kBuiltin && IsBuiltinNoise(treatment.noise)) {
        treatment.noise.clear();
    }
    if (!treatment.IsNothing()) {
        return false;
    }
    if (kind == MaterialKind::kWfdb && request.noise.empty()) {
        const WfdbHeader header = ParseWfdbHeader(HeaderPathOf(request.name));
        return !request.unit && IsLibraryRecord(header) && !LacksSamples(header);
    }
    return !HasOwnReader(request, kind);
}

void RequireFittingOptions(const MaterialRequest& request, MaterialKind kind) {
    if (!request.noise.empty() && kind != MaterialKind::kWfdb) {
        Fail(kUsage, "--noise-record", "mixes noise into WFDB records only.",
             "--noise adds a noise record to any material.");
    }
    if (!request.waveformOptions.empty() && kind != MaterialKind::kWaveform) {
        Fail(kUsage, *request.waveformOptions.begin(), "is for waveforms.");
    }
    if (!request.format.empty() && !IsFile(kind)) {
        Fail(kUsage, "--format", "is for files, which " + request.name + " is not.",
             "To name such a file, give ./" + request.name + ".");
    }
    if (request.rate && kind != MaterialKind::kCsv) {
        Fail(kUsage, "--rate", "is for CSV files; other material has a rate of its own.");
    }
    const bool takesUnit = kind == MaterialKind::kCsv || kind == MaterialKind::kEdf ||
                           (kind == MaterialKind::kWfdb && request.noise.empty());
    if (request.unit && !takesUnit) {
        Fail(kUsage, "--unit", "is for WFDB, CSV and EDF files; other material names its units.",
             "Leave it out.");
    }
    if (request.asEdf && kind != MaterialKind::kEdf) {
        Fail(kUsage, "--as-edf", "is for EDF files.");
    }
    if (IsLibraryEdf(request, kind) && !TreatmentOf(request).IsNothing()) {
        Fail(kUsage, "--as-edf", "plays the file as the library does, with nothing done to it.",
             "Without it gain, offset, noise and fractions of a second are possible.");
    }
}

Record NewRecord(const MaterialRequest& request, MaterialKind kind) {
    Record record;
    record.name = kind == MaterialKind::kWaveform ? request.name : StemOf(request.name);
    record.source = kind == MaterialKind::kWfdb ? HeaderPathOf(request.name) : request.name;
    record.format = KindName(kind);
    return record;
}

OpenedMaterial OpenMaterial(const MaterialRequest& request) {
    const MaterialKind kind = Recognise(request.name, request.format);
    RequireFittingOptions(request, kind);
    OpenedMaterial opened;
    opened.record = NewRecord(request, kind);
    opened.treatment = TreatmentOf(request);
    Record& record = opened.record;
    if (HasOwnReader(request, kind)) {
        opened.reader = OpenOwn(request, kind, record.source);
        TakeSource(record, opened.reader->Record());
        MapSignals(record, request.map);
        DropRepeatedClaims(record);
    } else {
        LoadByLibrary(record, Bare(request), kind);
        opened.reader = Captured(record);
    }
    record.gain = opened.treatment.gain;
    record.offset = opened.treatment.offset;
    record.skippedSeconds = opened.treatment.start;
    if (!opened.treatment.noise.empty()) {
        record.noise = opened.treatment.noise;
    }
    opened.reader = Treat(std::move(opened.reader), opened.Leads(), opened.treatment);
    record.files = opened.reader->Record().files;
    return opened;
}

} // namespace lab
