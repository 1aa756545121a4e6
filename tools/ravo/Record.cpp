#include "tools/ravo/Record.h"

#include "tools/ravo/Builtin.h"
#include "tools/ravo/Message.h"
#include "tools/ravo/Recognition.h"
#include "tools/ravo/Staging.h"
#include "tools/ravo/Validators.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace cli {
namespace {

constexpr int kNativeFramesPerSecond = 1000;
constexpr int32_t kFormat16 = 16;
constexpr int32_t kFormat212 = 212;

struct FreeEcgHeader {
    void operator()(ECG_HEADER* header) const { RAVOFreeECGHeader(header); }
};
struct FreeWfdbHeader {
    void operator()(WFDB_HEADER* header) const { WFDBFreeHeader(header); }
};
using EcgHeader = std::unique_ptr<ECG_HEADER, FreeEcgHeader>;
using WfdbHeader = std::unique_ptr<WFDB_HEADER, FreeWfdbHeader>;

WfdbHeader ReadWfdbHeader(const std::string& path) {
    std::vector<char> writable(path.begin(), path.end());
    writable.push_back('\0');
    return WfdbHeader(WFDBReadHeader(writable.data()));
}

// The library takes file names only behind a directory.
std::string WithDirectory(const std::string& path) {
    return path.find('/') == std::string::npos ? "./" + path : path;
}

std::string DirectoryOf(const std::string& path) {
    return path.substr(0, path.find_last_of('/') + 1);
}

std::string SignalPathOf(const std::string& path, const WFDB_HEADER& header) {
    return DirectoryOf(path) + header.Signal[0].FileName;
}

std::string StemOf(const std::string& path) {
    const std::string name = path.substr(path.find_last_of('/') + 1);
    return name.substr(0, name.find_last_of('.'));
}

// ---- Is the record one that the library reads? --------------------------------------------------

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

// A signal file that ends early plays as silence; the user should know.
std::string ShortFileWarning(const std::string& path, const std::string& signalPath,
                             const WFDB_HEADER& header) {
    struct stat status {};
    if (::stat(signalPath.c_str(), &status) != 0) {
        return "";
    }
    const int64_t frames = StoredFrames(header, status.st_size);
    const int64_t announced = header.NumberOfSamplesPerSignal;
    if (frames >= announced) {
        return "";
    }
    return Format("%s announces %lld frames, its signal file holds %lld: the rest plays as silence",
                  Printable(path).c_str(), static_cast<long long>(announced),
                  static_cast<long long>(frames));
}

// Fails with the reason when the record cannot be loaded; returns what the user should be warned
// of, or an empty text.
std::string RequireWfdbRecord(const std::string& path) {
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
    RequireFile(signalPath);
    return ShortFileWarning(path, signalPath, *header);
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
// that the record has not count as 0: up to 15 windows measure as silence.
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

// ---- The mapping from signals to leads ----------------------------------------------------------

std::size_t FindSignal(const Record& record, const std::string& wanted) {
    for (std::size_t i = 0; i < record.signals.size(); ++i) {
        if (record.signals[i].description == wanted) {
            return i;
        }
    }
    const bool isNumber =
        !wanted.empty() && wanted.find_first_not_of("0123456789") == std::string::npos;
    const std::size_t number = isNumber ? std::strtoul(wanted.c_str(), nullptr, 10) : SIZE_MAX;
    if (number >= record.signals.size()) {
        std::string names;
        for (std::size_t i = 0; i < record.signals.size(); ++i) {
            names += Format("%s%zu \"%s\"", i == 0 ? "" : ", ", i,
                            Printable(record.signals[i].description).c_str());
        }
        Fail(kUsage, "--map " + wanted, "names no signal of this record.",
             "Its signals are " + names + ".");
    }
    return number;
}

// A lead is fed by the first signal that claims it, so every earlier claim to it is dropped.
void MapSignal(Record& record, const std::string& entry, std::vector<std::size_t>& mapped) {
    const auto equals = entry.find_last_of('=');
    const auto lead =
        equals == std::string::npos ? std::nullopt : LeadFromName(entry.substr(equals + 1));
    if (!lead) {
        Fail(kUsage, "--map " + entry, "is not of the form SIGNAL=LEAD.",
             "SIGNAL is a signal's description or number, LEAD one of I, II, V1 to V6, none.");
    }
    const std::size_t signal = FindSignal(record, entry.substr(0, equals));
    if (std::find(mapped.begin(), mapped.end(), signal) != mapped.end()) {
        Fail(kUsage, "--map " + entry, "maps a signal a second time.",
             "One signal feeds one lead.");
    }
    mapped.push_back(signal);
    for (Signal& other : record.signals) {
        other.lead = other.lead == *lead ? ECG_LEAD_NONE : other.lead;
    }
    record.signals[signal].lead = *lead;
}

void MapSignals(Record& record, const MaterialRequest& request, ECG_HEADER& header) {
    if (request.map.empty()) {
        return;
    }
    std::vector<std::size_t> mapped;
    for (const std::string& entry : request.map) {
        MapSignal(record, entry, mapped);
    }
    for (std::size_t i = 0; i < record.signals.size(); ++i) {
        header.Signal[i].Lead = record.signals[i].lead;
    }
    RAVOUpdateECGHeaderMappingLead(&header);
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

// ---- Waveforms ----------------------------------------------------------------------------------

bool LoadShape(WAVEFORM_TYPE shape, const MaterialRequest& request) {
    if (request.amplitude.size() == 1) {
        return RAVOLoadWaveform(shape, request.frequency, request.amplitude[0]);
    }
    std::vector<double> amplitudes = request.amplitude;
    return RAVOLoadWaveformEx(shape, request.frequency, amplitudes.data());
}

bool LoadNamedWaveform(const MaterialRequest& request) {
    const double amplitude = request.amplitude[0];
    if (request.name == "sine") {
        return LoadShape(WAVEFORM_SINE, request);
    }
    if (request.name == "triangle") {
        return LoadShape(WAVEFORM_TRIANGLE, request);
    }
    if (request.name == "square") {
        return LoadShape(WAVEFORM_SQUARE, request);
    }
    if (request.name == "rectangle-pulse") {
        return RAVOLoadWaveformRectanglePulse(request.width, request.frequency, amplitude);
    }
    if (request.name == "triangle-pulse") {
        return RAVOLoadWaveformTrianglePulse(request.width, request.frequency, amplitude);
    }
    if (request.name == "calibration") {
        return RAVOLoadWaveformCalibrationMode(request.frequency, amplitude);
    }
    return RAVOLoadWaveformAutoCalibrationMode();
}

std::string DescribeWaveform(const MaterialRequest& request) {
    if (request.name == "staircase") {
        return "staircase of 0.2, 1, 2 and 5 mV, up and down";
    }
    std::string text = Format("%s, %g Hz", request.name.c_str(), request.frequency);
    for (std::size_t i = 0; i < request.amplitude.size(); ++i) {
        text += Format("%s%g", i == 0 ? ", " : "/", request.amplitude[i]);
    }
    const bool isPulse = request.name.find("-pulse") != std::string::npos;
    return text + " mV" + (isPulse ? Format(", %d ms", request.width) : "");
}

void RequireAmplitudes(const MaterialRequest& request) {
    const bool isShape =
        request.name == "sine" || request.name == "triangle" || request.name == "square";
    if (request.amplitude.size() == 1 || (isShape && request.amplitude.size() == kOutputCount)) {
        return;
    }
    Fail(kUsage, "--amplitude",
         Format("takes one value%s, not %zu.",
                isShape ? ", or eight for I, II, V1 to V6" : " for this waveform",
                request.amplitude.size()));
}

void LoadWaveform(Record& record, const MaterialRequest& request) {
    if (!request.map.empty()) {
        Fail(kUsage, "--map", "has no meaning for a waveform.");
    }
    RequireAmplitudes(request);
    if (!LoadNamedWaveform(request)) {
        Fail(kMaterial, request.name, "cannot be loaded: memory was refused.");
    }
    record.source = DescribeWaveform(request);
    const bool isTable = g_WaveformType == WAVEFORM_TYPE_TABLE;
    const bool isStaircase = request.name == "staircase";
    record.isEndless = !isTable;
    record.rate = isTable && !isStaircase ? 360 : 1000;
    record.samples = !isTable ? 0 : isStaircase ? 45000 : 3600;
    for (std::size_t i = 0; i < kOutputCount; ++i) {
        record.signals.push_back({kOutputNames[i], static_cast<ECG_Lead>(i)});
    }
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

std::string HeaderPathOf(const std::string& name) {
    return WithDirectory(Extension(name) == ".hea" ? name : name + ".hea");
}

void MixNoise(const std::string& signal, const std::vector<std::string>& noises,
              const std::vector<double>& ratios, const std::string& output) {
    RequireWfdbRecord(signal);
    RequireTwoSignals(signal);
    RequireOtherFiles(output, signal);
    NSTSetSignal(signal.c_str());
    NSTResetNoise();
    for (std::size_t i = 0; i < noises.size(); ++i) {
        RequireWfdbRecord(noises[i]);
        RequireOtherFiles(output, noises[i]);
        WarnOfUnmeasurableNoise(noises[i]);
        NSTAddNoise(noises[i].c_str(), ratios.size() == 1 ? ratios[0] : ratios[i]);
    }
    const int result = NSTOutput(output.c_str());
    NSTResetNoise();
    if (result != 0) {
        Fail(kCannotWrite, output, "cannot be written.", "Is its directory there and writable?");
    }
}

void AddMaterialOptions(CLI::App& command, MaterialRequest& request) {
    const std::string group = "Material";
    command
        .add_option("--format", request.format,
                    "How to read the file, when its extension does not tell: wfdb, aha, cse, "
                    "native, edf, or edf-4 for EDF without V5 and V6")
        ->check(CLI::IsMember({"wfdb", "aha", "cse", "native", "edf", "edf-4"}))
        ->group(group);
    command
        .add_option("--map", request.map,
                    "SIGNAL=LEAD: play the signal with this description or number on output I, "
                    "II, V1 to V6, or none; may be repeated")
        ->allow_extra_args(false)
        ->group(group);
    command
        .add_option("--frequency", request.frequency, "Waveforms: frequency in Hz (0.01 to 100)")
        ->check(Between(0.01, 100.0))
        ->capture_default_str()
        ->group(group);
    command
        .add_option("--amplitude", request.amplitude,
                    "Waveforms: mV peak to peak (-10 to 10); sine, triangle and square also take "
                    "eight values A,A,... for I, II, V1 to V6")
        ->check(Between(-10.0, 10.0))
        ->delimiter(',')
        ->allow_extra_args(false)
        ->group(group);
    command.add_option("--width", request.width, "Pulses: width in ms")
        ->check(CLI::Range(1, 100000))
        ->capture_default_str()
        ->group(group);
    auto* noise = command
                      .add_option("--noise-record", request.noise,
                                  "Mix this WFDB record as noise into the WFDB record")
                      ->group(group);
    command
        .add_option("--noise", request.builtinNoise,
                    "Built-in records: add this noise of the built-in database while playing")
        ->group(group);
    command.add_option("--snr", request.signalToNoise, "Signal-to-noise ratio in dB")
        ->check(Between(-100.0, 100.0))
        ->needs(noise)
        ->group(group);
}

Record LoadRecord(const MaterialRequest& request) {
    const MaterialKind kind = Recognise(request.name, request.format);
    if (!request.noise.empty() && kind != MaterialKind::kWfdb) {
        Fail(kUsage, "--noise-record", "mixes noise into WFDB records only.");
    }
    if (!request.builtinNoise.empty() && kind != MaterialKind::kBuiltin) {
        Fail(kUsage, "--noise", "is for built-in records; files take --noise-record.");
    }
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

} // namespace cli
