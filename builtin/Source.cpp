#include "builtin/Source.h"

#include "api/ravo.h"
#include "builtin/Catalogue.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <stdexcept>

namespace ctscse {
namespace {

struct HeaderDeleter {
    void operator()(ECG_HEADER* header) const { RAVOFreeECGHeader(header); }
};
using HeaderPointer = std::unique_ptr<ECG_HEADER, HeaderDeleter>;

constexpr const char* kLeadNames[kLeads] = {"I", "II", "V1", "V2", "V3", "V4", "V5", "V6"};

// The indices of the eight leads among the twelve that the library returns.
constexpr size_t kPlaces[kLeads] = {0, 1, 6, 7, 8, 9, 10, 11};

// The library's callback takes no user argument.
std::vector<std::vector<double>>* g_pCollectedLeads = nullptr;

void CollectSample(double, double* leads, bool end) {
    if (end) {
        return;
    }
    for (size_t lead = 0; lead < kLeads; ++lead) {
        (*g_pCollectedLeads)[lead].push_back(leads[kPlaces[lead]]);
    }
}

Source CollectLoadedMaterial(const ECG_HEADER& header) {
    Source source{static_cast<int>(header.SamplingFrequency), {}};
    source.leads.resize(kLeads);
    if (source.rate < 1) {
        throw std::runtime_error("the file states no sampling rate");
    }
    g_pCollectedLeads = &source.leads;
    RAVOGetWaveformSignal(0, static_cast<int>(header.NumberOfSamples / source.rate + 1),
                          CollectSample);
    return source;
}

// The signal that feeds a lead.  Without one the lead would be imported as zeros.
size_t FindSignal(const ECG_HEADER& header, size_t lead, const std::string& path) {
    const auto signals = static_cast<size_t>(header.NumberOfSignals);
    for (size_t signal = 0; signal < signals; ++signal) {
        if (static_cast<size_t>(header.Signal[signal].Lead) == lead) {
            return signal;
        }
    }
    throw std::runtime_error(path + ": no signal is labelled as lead " + kLeadNames[lead]);
}

// Signals of different rates share frames of the lowest rate that they have in common; of a lead
// with several samples in a frame only their mean is played.
void RequireWholeLeads(const ECG_HEADER& header, const std::string& path) {
    for (size_t lead = 0; lead < kLeads; ++lead) {
        const WFDB_SIGNAL signal = header.WFDBHeader->Signal[FindSignal(header, lead, path)];
        if (signal.SamplesPerFrame > 1) {
            throw std::runtime_error(path +
                                     ": a signal of another rate leaves only the mean of every " +
                                     std::to_string(signal.SamplesPerFrame) + " samples of lead " +
                                     kLeadNames[lead] + "; take it out of the file");
        }
    }
}

// An EDF file holds its limits field by field, each eight characters wide and for all signals.
// `before` is the number of characters that the preceding fields take for one signal.
double ReadLimit(const std::string& file, size_t signals, size_t before, size_t signal) {
    constexpr size_t kFixedPart = 256;
    constexpr size_t kWidth = 8;
    const std::string field = file.substr(kFixedPart + signals * before + signal * kWidth, kWidth);
    return std::strtod(field.c_str(), nullptr);
}

// The baseline of a converted record is a whole number, one above the file's own.  This takes the
// difference out of the leads, so that they hold the file's physical values.
void RestoreBaselines(const ECG_HEADER& header, const std::string& path, Source& source) {
    constexpr size_t kBeforePhysicalMaximum = 16 + 80 + 8 + 8;
    constexpr size_t kBeforeDigitalMaximum = kBeforePhysicalMaximum + 8 + 8;
    std::ifstream stream(path, std::ios::binary);
    const std::string file(std::istreambuf_iterator<char>(stream), {});
    const auto signals = static_cast<size_t>(header.NumberOfSignals);
    for (size_t lead = 0; lead < kLeads; ++lead) {
        const size_t index = FindSignal(header, lead, path);
        const WFDB_SIGNAL signal = header.WFDBHeader->Signal[index];
        const double gain = signal.ADCGain;
        const double baseline = ReadLimit(file, signals, kBeforeDigitalMaximum, index) -
                                ReadLimit(file, signals, kBeforePhysicalMaximum, index) * gain;
        const double perMillivolt = signal.ADCUnit == 'u' ? 1000.0 : 1.0;
        const double shift = (signal.ADCBaseLine - baseline) / gain / perMillivolt;
        for (double& value : source.leads[lead]) {
            value += shift;
        }
    }
}

// Holds the converted EDF file during an import.
class TemporaryRepository {
  public:
    TemporaryRepository() {
        std::string name = (std::filesystem::temp_directory_path() / "ravo-import-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error(name + ": cannot be created");
        }
        m_path = name;
        g_pszRepository = m_path.data();
    }
    ~TemporaryRepository() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TemporaryRepository(const TemporaryRepository&) = delete;
    TemporaryRepository& operator=(const TemporaryRepository&) = delete;

  private:
    std::string m_path;
};

} // namespace

Source ReadCse(const std::string& path) {
    const HeaderPointer header(RAVOLoadDatabaseCSE(path.c_str()));
    if (header == nullptr) {
        throw std::runtime_error(path + ": is not a CSE record");
    }
    return CollectLoadedMaterial(*header);
}

Source ReadEdf(const std::string& path) {
    const TemporaryRepository repository;
    const HeaderPointer header(LoadDatabaseEDF(path.c_str(), MATERIAL_EDF));
    if (header == nullptr || !RAVOLoadMITDatabase(header.get())) {
        throw std::runtime_error(path + ": is not an EDF file that can be read");
    }
    RequireWholeLeads(*header, path);
    Source source = CollectLoadedMaterial(*header);
    RestoreBaselines(*header, path, source);
    return source;
}

namespace {

bool IsBlank(const std::string& line) {
    return line.find_first_not_of(" \t\r") == std::string::npos;
}

// Appends the line's numbers to the leads.  False unless there are exactly as many as leads.
bool TakeLine(const std::string& line, double perMillivolt, Source& source) {
    std::istringstream fields(line);
    for (std::vector<double>& lead : source.leads) {
        double value = 0.0;
        if (!(fields >> value)) {
            return false;
        }
        lead.push_back(value / perMillivolt);
    }
    return (fields >> std::ws).eof();
}

} // namespace

Source ReadColumns(const std::string& path, int rate, double perMillivolt) {
    std::ifstream file(path);
    if (!file) {
        throw std::runtime_error(path + ": cannot be read");
    }
    Source source{rate, std::vector<std::vector<double>>(kLeads)};
    size_t lineNumber = 0;
    for (std::string line; std::getline(file, line);) {
        ++lineNumber;
        if (!IsBlank(line) && !TakeLine(line, perMillivolt, source)) {
            throw std::runtime_error(path + ", line " + std::to_string(lineNumber) +
                                     ": expected eight numbers");
        }
    }
    return source;
}

std::vector<std::vector<double>> TakePeriod(const Source& source, size_t first, size_t samples) {
    if (source.rate < 1 || kRate % source.rate != 0) {
        throw std::runtime_error("a rate of " + std::to_string(source.rate) +
                                 " samples per second does not divide 1000");
    }
    const auto factor = static_cast<size_t>(kRate / source.rate);
    if (samples % factor != 0) {
        throw std::runtime_error("a period of " + std::to_string(samples) +
                                 " ms is not a whole number of samples at " +
                                 std::to_string(source.rate) + " per second");
    }
    const size_t needed = samples / factor;
    const size_t available = source.leads[0].size();
    if (first > available || available - first < needed || needed == 0) {
        throw std::runtime_error("expected " + std::to_string(needed) + " samples at " +
                                 std::to_string(source.rate) + " per second, found " +
                                 std::to_string(available - std::min(first, available)));
    }
    std::vector<std::vector<double>> period;
    for (const std::vector<double>& lead : source.leads) {
        std::vector<double> values;
        for (size_t n = 0; n < samples; ++n) {
            const size_t at = n / factor;
            const double here = lead[first + at];
            const double next = lead[first + (at + 1 < needed ? at + 1 : 0)];
            values.push_back(here + (next - here) * static_cast<double>(n % factor) /
                                        static_cast<double>(factor));
        }
        period.push_back(values);
    }
    return period;
}

} // namespace ctscse
