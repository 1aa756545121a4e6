#include "lab/material/LibraryEdf.h"

#include "lab/common/Failure.h"
#include "lab/material/Mapping.h"
#include "lab/material/readers/Units.h"

namespace lab {
namespace {

constexpr const char* kCure =
    "Without --as-edf and --format edf-4 each signal plays at its own rate.";

void RequireOneRate(const std::string& path, const EdfHeader& header) {
    const int64_t perRecord = header.signals[0].perRecord;
    for (std::size_t i = 0; i < header.signals.size(); ++i) {
        if (header.signals[i].perRecord != perRecord) {
            Fail(kMaterial, path,
                 Format("signal %zu \"%s\" has %lld samples in a data record, signal 0 has %lld; "
                        "the library's own kind of EDF material takes one rate.",
                        i, Printable(header.signals[i].label).c_str(),
                        static_cast<long long>(header.signals[i].perRecord),
                        static_cast<long long>(perRecord)),
                 kCure);
        }
    }
    const Rate rate = MakeRate(header.duration.denominator, header.duration.numerator) * perRecord;
    if (!header.duration.IsWhole() || !rate.IsWhole()) {
        Fail(kMaterial, path,
             Format("has %lld samples in %g s; the library's own kind of EDF material takes data "
                    "records of whole seconds and whole rates.",
                    static_cast<long long>(perRecord), header.duration.PerSecond()),
             kCure);
    }
}

void RequireVoltages(const Record& record, const EdfHeader& header) {
    for (std::size_t i = 0; i < record.signals.size(); ++i) {
        if (record.signals[i].lead != ECG_LEAD_NONE && !IsLibraryUnit(header.signals[i].unit)) {
            FailUnit(record, i, header.signals[i].unit);
        }
    }
}

} // namespace

// The converter assumes 16 bits, one rate, data records of whole seconds and a complete file.
void RequireLibraryEdf(const std::string& path, const EdfHeader& header) {
    if (header.bytesPerSample != 2) {
        Fail(kMaterial, path,
             "is a BDF file, of 24 bits a sample; the library's own kind of EDF material takes EDF "
             "files, of 16.",
             "Without --as-edf and --format edf-4 it plays, each signal at its own rate.");
    }
    RequireOneRate(path, header);
    if (header.records < header.announcedRecords) {
        Fail(kMaterial, path,
             Format("announces %lld data records and holds %lld; the library would play silence "
                    "for the rest.",
                    static_cast<long long>(header.announcedRecords),
                    static_cast<long long>(header.records)),
             kCure);
    }
}

void TakeEdfOutputs(Record& record, const EdfHeader& header, WaveformType type) {
    RequireVoltages(record, header);
    const bool hasFourChest = type == MATERIAL_EDF_FOUR_CHEST;
    for (Signal& signal : record.signals) {
        const bool isDropped =
            signal.lead == ECG_LEAD_II ||
            (hasFourChest && (signal.lead == ECG_LEAD_V5 || signal.lead == ECG_LEAD_V6));
        if (isDropped) {
            record.warnings.push_back(
                Format("%s: signal \"%s\" feeds no output, in the library's own kind of EDF "
                       "material %s",
                       Printable(record.name).c_str(), Printable(signal.description).c_str(),
                       signal.lead == ECG_LEAD_II ? "output II carries lead I"
                                                  : "V5 and V6 carry no lead"));
            signal.lead = ECG_LEAD_NONE;
        }
    }
}

bool IsLibraryUnit(const std::string& unit) {
    const auto units = UnitsPerMillivolt(unit);
    return units && *units == (unit[0] == 'u' ? 1000.0 : 1.0);
}

} // namespace lab
