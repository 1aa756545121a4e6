#include "lab/material/readers/EdfHeader.h"

#include "lab/common/Failure.h"

#include <algorithm>
#include <string_view>

namespace lab {
namespace {

constexpr std::size_t kFixedBytes = 256;
constexpr std::size_t kBytesPerSignal = 256;
constexpr int64_t kMostSignals = 4096;

// Where each field of the signals begins, as a multiple of the number of signals.
constexpr std::size_t kLabel = 0;
constexpr std::size_t kUnit = 96;
constexpr std::size_t kPhysicalMinimum = 104;
constexpr std::size_t kPhysicalMaximum = 112;
constexpr std::size_t kDigitalMinimum = 120;
constexpr std::size_t kDigitalMaximum = 128;
constexpr std::size_t kPerRecord = 216;

std::string_view FieldAt(const std::string& header, std::size_t at, std::size_t width) {
    std::string_view field = std::string_view(header).substr(at, width);
    return Trim(field.substr(0, field.find('\0')));
}

[[noreturn]] void FailNoEdf(const std::string& path) {
    Fail(kMaterial, path,
         "is not an EDF file: it begins neither with version \"0\" nor as a BDF file does.",
         "--format says how to read it.");
}

[[noreturn]] void FailIncomplete(const std::string& path) {
    Fail(kMaterial, path, "ends within its header: it is not a complete EDF file.",
         "Copy or export it again.");
}

void ParseVersion(EdfHeader& header, const std::string& path, const std::string& text) {
    if (FieldAt(text, 0, 8) == "0") {
        header.bytesPerSample = 2;
    } else if (text.compare(0, 8,
                            "\xFF"
                            "BIOSEMI") == 0) {
        header.bytesPerSample = 3;
    } else {
        FailNoEdf(path);
    }
}

int64_t WholeField(const std::string& path, const std::string& text, std::size_t at,
                   std::size_t width, const char* name) {
    const auto value = ParseWhole(FieldAt(text, at, width));
    if (!value) {
        Fail(kMaterial, path, Format("has no whole number as its %s.", name),
             "Its header is damaged: export the file again.");
    }
    return *value;
}

void ParseFixed(EdfHeader& header, const std::string& path, const std::string& text) {
    ParseVersion(header, path, text);
    header.date = FieldAt(text, 168, 8);
    header.time = FieldAt(text, 176, 8);
    header.isDiscontinuous = FieldAt(text, 192, 44).substr(0, 5) == "EDF+D" ||
                             FieldAt(text, 192, 44).substr(0, 5) == "BDF+D";
    header.announcedRecords = WholeField(path, text, 236, 8, "number of data records");
    const auto duration = ParseFraction(FieldAt(text, 244, 8));
    if (!duration || duration->numerator < 0) {
        Fail(kMaterial, path, "has no number as the duration of a data record.",
             "Its header is damaged: export the file again.");
    }
    header.duration = *duration;
}

double NumberField(const std::string& path, std::string_view field, std::size_t signal,
                   const char* name) {
    const auto value = ParseNumber(field);
    if (!value) {
        Fail(kMaterial, path, Format("signal %zu has no number as its %s.", signal, name),
             "Its header is damaged: export the file again.");
    }
    return *value;
}

EdfSignal ParseSignal(const EdfHeader& header, const std::string& path, const std::string& text,
                      std::size_t count, std::size_t number) {
    const auto field = [&](std::size_t place, std::size_t width) {
        return FieldAt(text, kFixedBytes + place * count + number * width, width);
    };
    EdfSignal signal;
    signal.label = field(kLabel, 16);
    signal.isAnnotation = signal.label == "EDF Annotations" || signal.label == "BDF Annotations";
    signal.unit = field(kUnit, 8);
    constexpr double kMostPerRecord = 99999999.0; // the most that eight digits can announce
    const double perRecord = NumberField(path, field(kPerRecord, 8), number, "samples per record");
    const bool isPossible = perRecord >= 0.0 && perRecord <= kMostPerRecord;
    signal.perRecord = isPossible ? static_cast<int64_t>(perRecord) : 0;
    if (!isPossible || (header.duration.numerator == 0 && !signal.isAnnotation)) {
        Fail(kMaterial, path,
             Format("signal %zu has %.0f samples in a data record of %g s.", number, perRecord,
                    header.duration.PerSecond()),
             "Both must be more than 0: export the file again.");
    }
    if (!signal.isAnnotation) {
        const auto number8 = [&](std::size_t place, const char* name) {
            return NumberField(path, field(place, 8), number, name);
        };
        signal.physicalMinimum = number8(kPhysicalMinimum, "physical minimum");
        signal.physicalMaximum = number8(kPhysicalMaximum, "physical maximum");
        signal.digitalMinimum = number8(kDigitalMinimum, "digital minimum");
        signal.digitalMaximum = number8(kDigitalMaximum, "digital maximum");
    }
    return signal;
}

void LayOutRecord(EdfHeader& header, const std::string& path, int64_t fileSize) {
    for (EdfSignal& signal : header.signals) {
        signal.offset = header.recordBytes;
        header.recordBytes += signal.perRecord * header.bytesPerSample;
    }
    const int64_t data = std::max<int64_t>(fileSize - header.headerBytes, 0);
    const int64_t held = header.recordBytes > 0 ? data / header.recordBytes : 0;
    header.endsWithinRecord = header.announcedRecords < 0 && held * header.recordBytes < data;
    header.records = header.announcedRecords < 0 ? held : std::min(held, header.announcedRecords);
    if (header.records == 0) {
        Fail(kMaterial, path, "holds no whole data record.",
             "Is the file complete? Copy or export it again.");
    }
}

} // namespace

EdfHeader ParseEdfHeader(const ByteFile& file) {
    const std::string& path = file.Path();
    std::string text(kFixedBytes, '\0');
    text.resize(file.ReadAt(0, text.data(), kFixedBytes));
    EdfHeader header;
    ParseVersion(header, path, text);
    if (text.size() < kFixedBytes) {
        FailIncomplete(path);
    }
    ParseFixed(header, path, text);
    const int64_t count = WholeField(path, text, 252, 4, "number of signals");
    if (count < 1 || count > kMostSignals) {
        Fail(kMaterial, path, Format("announces %lld signals.", static_cast<long long>(count)),
             "Its header is damaged: export the file again.");
    }
    const auto signals = static_cast<std::size_t>(count);
    text.resize(kFixedBytes + signals * kBytesPerSignal);
    if (file.ReadAt(0, text.data(), text.size()) < text.size()) {
        FailIncomplete(path);
    }
    header.headerBytes = static_cast<int64_t>(text.size());
    for (std::size_t i = 0; i < signals; ++i) {
        header.signals.push_back(ParseSignal(header, path, text, signals, i));
    }
    LayOutRecord(header, path, file.Size());
    return header;
}

} // namespace lab
