#include "lab/material/Record.h"

#include "lab/common/Failure.h"
#include "lab/material/Builtin.h"
#include "lab/material/Mapping.h"
#include "lab/material/Recognition.h"
#include "lab/material/Staging.h"
#include "lab/material/Waveforms.h"
#include "lab/material/WfdbFiles.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <limits>
#include <memory>

namespace lab {
namespace {

constexpr int kNativeFramesPerSecond = 1000;

struct FreeEcgHeader {
    void operator()(ECG_HEADER* header) const { RAVOFreeECGHeader(header); }
};
using EcgHeader = std::unique_ptr<ECG_HEADER, FreeEcgHeader>;

std::string StemOf(const std::string& path) {
    const std::string name = path.substr(path.find_last_of('/') + 1);
    return name.substr(0, name.find_last_of('.'));
}

void RequireEdf(const std::string& path) {
    RequireFile(path);
    constexpr std::array<char, 8> kVersion = {'0', ' ', ' ', ' ', ' ', ' ', ' ', ' '};
    std::array<char, 8> version{};
    std::ifstream file(path, std::ios::binary);
    file.read(version.data(), version.size());
    if (!file || version != kVersion) {
        Fail(kMaterial, path, "is not an EDF file: it does not begin with version \"0\".",
             "BDF and other relatives of EDF are not readable; convert it into EDF.");
    }
}

// ---- Loading ------------------------------------------------------------------------------------

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

// What WFDB records and those made from others have in common: signals with descriptions, which
// the user may map, and samples that are read from the record.
void LoadMapped(Record& record, const MaterialRequest& request, const EcgHeader& header) {
    if (!header) {
        FailLoading(record.source);
    }
    TakeHeader(record, *header);
    MapSignals(record, request, *header);
    if (header->WFDBHeader != nullptr) {
        TakeDate(record, *header->WFDBHeader);
        record.signalFormat = record.signals.empty() ? 0 : header->WFDBHeader->Signal[0].Format;
        WarnIfShortened(record, *header->WFDBHeader);
    }
}

void LoadSamples(const Record& record, const EcgHeader& header) {
    if (!RAVOLoadMITDatabase(header.get())) {
        Fail(kMaterial, record.source, "does not fit into memory.");
    }
}

void LoadWfdbFile(Record& record, const MaterialRequest& request, const std::string& path) {
    const EcgHeader header(RAVOLoadMITHeader(path.c_str()));
    LoadMapped(record, request, header);
    LoadSamples(record, header);
}

void LoadWfdb(Record& record, const MaterialRequest& request) {
    record.source = HeaderPathOf(request.name);
    const std::string warning = RequireWfdbRecord(record.source);
    if (!warning.empty()) {
        record.warnings.push_back(warning);
    }
    LoadWfdbFile(record, request, record.source);
}

// The mix is written into a directory of its own: the library's own loader shares one temporary
// record between all processes.
void LoadNoiseMix(Record& record, const MaterialRequest& request) {
    record.source = HeaderPathOf(request.name);
    const TemporaryDirectory directory;
    const std::string mix = directory.Path() + "/mix";
    MixNoise(record.source, {HeaderPathOf(request.noise)}, {request.signalToNoise}, mix);
    LoadWfdbFile(record, request, mix + ".hea");
    record.name +=
        Format(" with %s at %g dB", StemOf(request.noise).c_str(), request.signalToNoise);
}

// The repository is private and temporary, so that a changed file is never mistaken for the
// record that was once made from it.
void LoadEdf(Record& record, const MaterialRequest& request, WaveformType type) {
    RequireEdf(request.name);
    const Staging staging(request.name, ".edf");
    std::string repository = staging.Directory();
    char* const former = g_pszRepository;
    g_pszRepository = repository.data();
    const EcgHeader header(LoadDatabaseEDF(staging.Path().c_str(), type));
    g_pszRepository = former;
    LoadMapped(record, request, header);
    LoadSamples(record, header);
    g_WaveformType = type;
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
    TakeHeader(record, *header);
}

void LoadBuiltin(Record& record, const MaterialRequest& request) {
    if (!request.map.empty()) {
        Fail(kUsage, "--map", "has no meaning here: the leads of built-in records are fixed.");
    }
    const int number = FindBuiltinRecord(request.name);
    const EcgHeader header(RAVOLoadDatabaseCTS_CSE(number, FindBuiltinNoise(request.builtinNoise)));
    if (!header) {
        Fail(kMaterial, request.name, "cannot be loaded: memory was refused.");
    }
    TakeHeader(record, *header);
    record.name = header->RecordName;
    if (RAVO_BUILTIN_RECORD information{};
        RAVOGetBuiltinRecord(number, &information) && information.Licensed == 0) {
        record.warnings.push_back(
            record.name + " is a stand-in made from published definitions, not the licensed "
                          "record; see \"ravo list\"");
    }
}

void LoadKind(Record& record, const MaterialRequest& request, MaterialKind kind) {
    switch (kind) {
    case MaterialKind::kWaveform:
        return LoadWaveform(record, request);
    case MaterialKind::kBuiltin:
        return LoadBuiltin(record, request);
    case MaterialKind::kWfdb:
        return request.noise.empty() ? LoadWfdb(record, request) : LoadNoiseMix(record, request);
    case MaterialKind::kEdf:
        return LoadEdf(record, request, WAVEFORM_TYPE_EDF);
    case MaterialKind::kEdfFourChest:
        return LoadEdf(record, request, WAVEFORM_TYPE_EDF_FOUR_CHEST);
    case MaterialKind::kAha: {
        const bool isText = Extension(request.name) == ".txt";
        return LoadUnmapped(record, request, RAVOLoadDatabaseAHA, isText ? ".txt" : ".ecg");
    }
    case MaterialKind::kCse: {
        const bool isBinary = Extension(request.name) == ".dcd";
        return LoadUnmapped(record, request, RAVOLoadDatabaseCSE, isBinary ? ".dcd" : ".txt");
    }
    case MaterialKind::kNative:
        return LoadUnmapped(record, request, RAVOLoadDatabaseTarnwick, ".txt");
    }
}

// ---- Which leads are there? ---------------------------------------------------------------------

// A lead that a native text file does not hold stays 0 throughout.
void DropSilentLeads(Record& record) {
    std::array<bool, kOutputCount> isHeard{};
    ForEachSample(0, static_cast<int>(std::ceil(record.Seconds())), [&](const double* leads) {
        for (std::size_t i = 0; i < kOutputCount; ++i) {
            isHeard[i] = isHeard[i] || leads[LeadOfOutput(i)] != 0.0;
        }
    });
    for (std::size_t i = 0; i < kOutputCount; ++i) {
        record.supplied[LeadOfOutput(i)] = record.supplied[LeadOfOutput(i)] && isHeard[i];
    }
}

void FindSuppliedLeads(Record& record) {
    for (const Signal& signal : record.signals) {
        const auto output = static_cast<std::size_t>(signal.lead);
        if (output < kOutputCount) {
            record.supplied[LeadOfOutput(output)] = true;
        }
    }
    if (record.type == WAVEFORM_TYPE_TARNWICK) {
        DropSilentLeads(record);
    }
    if (record.type == WAVEFORM_TYPE_EDF_FOUR_CHEST) {
        record.supplied[LeadOfOutput(ECG_LEAD_V5)] = false;
        record.supplied[LeadOfOutput(ECG_LEAD_V6)] = false;
    }
    // The library derives no limb leads for two-signal and for EDF material.
    const bool isDerived = record.type != WAVEFORM_TYPE_AHA && record.type != WAVEFORM_TYPE_EDF &&
                           record.type != WAVEFORM_TYPE_EDF_FOUR_CHEST;
    for (std::size_t lead = 2; lead < 6; ++lead) {
        record.supplied[lead] = isDerived && record.supplied[0] && record.supplied[1];
    }
}

// An option that would be ignored shows a misunderstanding.
void RequireFittingOptions(const MaterialRequest& request, MaterialKind kind) {
    if (!request.noise.empty() && kind != MaterialKind::kWfdb) {
        Fail(kUsage, "--noise-record", "mixes noise into WFDB records only.");
    }
    if (!request.builtinNoise.empty() && kind != MaterialKind::kBuiltin) {
        Fail(kUsage, "--noise", "is for built-in records; files take --noise-record.");
    }
    if (!request.waveformOptions.empty() && kind != MaterialKind::kWaveform) {
        Fail(kUsage, *request.waveformOptions.begin(), "is for waveforms.");
    }
    const bool isFile = kind != MaterialKind::kWaveform && kind != MaterialKind::kBuiltin;
    if (!request.format.empty() && !isFile) {
        Fail(kUsage, "--format", "is for files, and " + request.name + " is none.",
             "A file of this name is given as ./" + request.name + ".");
    }
}

// The boundary's callback takes no argument of the caller's.
const std::function<void(const double*)>* s_each = nullptr;

void PassSample(double, double* leads, bool end) {
    if (!end) {
        (*s_each)(leads);
    }
}

} // namespace

double Record::Seconds() const {
    return isEndless ? std::numeric_limits<double>::infinity()
                     : static_cast<double>(samples) / static_cast<double>(rate);
}

int64_t Record::FramesPerSecond() const {
    return type == WAVEFORM_TYPE_TARNWICK ? kNativeFramesPerSecond : rate;
}

Record LoadRecord(const MaterialRequest& request) {
    const MaterialKind kind = Recognise(request.name, request.format);
    RequireFittingOptions(request, kind);
    Record record;
    record.name = kind == MaterialKind::kWaveform ? request.name : StemOf(request.name);
    record.source = request.name;
    record.format = KindName(kind);
    LoadKind(record, request, kind);
    record.type = static_cast<WaveformType>(g_WaveformType);
    if (!record.isEndless && (record.rate < 1 || record.samples < 1)) {
        Fail(kMaterial, request.name, "holds no samples.");
    }
    FindSuppliedLeads(record);
    return record;
}

void RequirePlayable(const Record& record) {
    const bool isPlayable = std::any_of(record.signals.begin(), record.signals.end(),
                                        [](const Signal& s) { return s.lead != ECG_LEAD_NONE; });
    if (!isPlayable) {
        Fail(kMaterial, record.source, "has no signal whose description names a lead.",
             "Map one: --map SIGNAL=LEAD. \"ravo info\" lists the signals.");
    }
}

void RequireStart(const Record& record, int startSecond) {
    if (startSecond >= record.Seconds()) {
        Fail(kUsage, Format("--start %d", startSecond),
             Format("is past the end: %s lasts %.3f s.", Printable(record.name).c_str(),
                    record.Seconds()));
    }
}

void ForEachSample(int startSecond, int seconds, const std::function<void(const double*)>& each) {
    s_each = &each;
    RAVOGetWaveformSignal(startSecond, seconds, PassSample);
    s_each = nullptr;
}

} // namespace lab
