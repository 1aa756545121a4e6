#include "lab/material/readers/WfdbHeader.h"

#include "lab/common/Failure.h"
#include "lab/material/readers/Files.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <string>
#include <string_view>

namespace lab {
namespace {

constexpr std::size_t kLargestHeader = 16U << 20U;
constexpr int64_t kMostPerFrame = 1'000'000;
constexpr std::size_t kLibraryLine = 254;
constexpr const char* kBlanks = " \t\r\v\f";

// Cuts a line into its fields.
class Fields {
  public:
    explicit Fields(std::string_view line) : m_rest(line) {}

    std::string_view Next() {
        m_rest.remove_prefix(std::min(m_rest.find_first_not_of(kBlanks), m_rest.size()));
        const std::string_view field = m_rest.substr(0, m_rest.find_first_of(kBlanks));
        m_rest.remove_prefix(field.size());
        return field;
    }

    std::string_view Rest() const { return Trim(m_rest); }

  private:
    std::string_view m_rest;
};

// The lines with content; comments begin with "#" wherever they appear. Records in the header where
// the first line stands and whether the library can read all of them.
std::vector<std::string_view> Lines(const std::string& text, WfdbHeader& header) {
    std::vector<std::string_view> lines;
    std::string_view rest = text;
    for (int64_t number = 1; !rest.empty(); ++number) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        const std::string_view content = Trim(line);
        const bool isSaid = !content.empty() && content[0] != '#';
        header.isPlainText =
            header.isPlainText && line.size() <= kLibraryLine && (number > 1 || isSaid);
        if (isSaid) {
            header.recordLine = lines.empty() ? number : header.recordLine;
            lines.push_back(content);
        }
    }
    return lines;
}

[[noreturn]] void FailNoHeader(const std::string& path) {
    Fail(kMaterial, path, "is not a WFDB header.",
         "Its first line must give the record's name, its number of signals and, unless that is\n"
         "      250 per second, its sampling frequency; lines that begin with # may precede it.");
}

// "360", "360.5", "360/0.5(0)": the counter frequency after the "/" does not concern the samples.
Rate ParseRate(const std::string& path, std::string_view text) {
    constexpr int64_t kUsual = 250;
    if (text.empty()) {
        return MakeRate(kUsual, 1);
    }
    const auto rate = ParseFraction(text.substr(0, text.find_first_of("/(")));
    if (!rate) {
        FailNoHeader(path);
    }
    return *rate;
}

// The time and date of the start follow the fixed fields.
void ParseStart(WfdbHeader& header, Fields& fields) {
    header.time = fields.Next();
    header.date = fields.Next();
}

// Returns the number of signals announced.
int64_t ParseRecordLine(WfdbHeader& header, std::string_view line, int64_t& segments) {
    Fields fields(line);
    const std::string_view name = fields.Next();
    const auto slash = name.find('/');
    header.name = name.substr(0, slash);
    segments = slash == std::string_view::npos ? 0 : LeadingWhole(name.substr(slash + 1));
    const auto signals = ParseWhole(fields.Next());
    if (!signals || *signals < 0) {
        FailNoHeader(header.path);
    }
    const std::string_view frequency = fields.Next();
    header.rate = ParseRate(header.path, frequency);
    if (const std::string_view frames = fields.Next(); !frames.empty()) {
        const auto count = ParseWhole(frames);
        if (!count) {
            FailNoHeader(header.path);
        }
        header.frames = *count == 0 ? -1 : *count;
        if (*count < 0 || header.rate.numerator <= 0) {
            Fail(kMaterial, header.path,
                 Format("announces %lld samples at %g per second; both must be 1 or more.",
                        static_cast<long long>(*count), header.rate.PerSecond()),
                 "Correct the header's first line.");
        }
    }
    if (header.rate.numerator <= 0) {
        Fail(kMaterial, header.path,
             Format("announces %g samples per second; it must be more than 0.",
                    header.rate.PerSecond()),
             "Correct the header's first line.");
    }
    ParseStart(header, fields);
    return *signals;
}

[[noreturn]] void FailSignal(const WfdbHeader& header, const std::string& problem) {
    Fail(kMaterial, header.path,
         Format("signal %zu has %s.", header.signals.size(), problem.c_str()),
         "Correct its line in the header.");
}

std::string Quoted(std::string_view text) {
    return "\"" + Printable(std::string(text)) + "\"";
}

// "212x4:6+512": format, samples per frame, skew and byte offset, the last three in any order.
void ParseFormat(const WfdbHeader& header, WfdbSignalLine& signal, std::string_view field) {
    const auto wholeAt = [&](std::size_t begin, std::size_t end) {
        const auto value = ParseWhole(field.substr(begin, end - begin));
        if (!value || *value < 0) {
            FailSignal(header, "the format " + Quoted(field) + ", which does not exist");
        }
        return *value;
    };
    std::size_t end = std::min(field.find_first_of("x:+"), field.size());
    signal.format = static_cast<int>(std::min<int64_t>(wholeAt(0, end), 9999));
    while (end < field.size()) {
        const std::size_t begin = end + 1;
        const char kind = field[end];
        end = std::min(field.find_first_of("x:+", begin), field.size());
        const int64_t value = wholeAt(begin, end);
        if (kind == 'x') {
            signal.samplesPerFrame = std::max<int64_t>(value, 1);
        } else if (kind == ':') {
            signal.skew = value;
        } else {
            signal.offset = value;
        }
    }
}

// A number whose reciprocal is finite, too; 0 for an absent field.
double ParseScale(const WfdbHeader& header, std::string_view text, const char* what) {
    constexpr double kMost = 1e15;
    const auto value = text.empty() ? std::optional<double>(0.0) : ParseNumber(text);
    if (!value || !(std::abs(*value) <= kMost)) {
        FailSignal(header,
                   std::string("the ") + what + " " + Quoted(text) + ", which is not a number");
    }
    return *value;
}

// "200(-5)/mV". Returns whether the baseline is given.
bool ParseGain(const WfdbHeader& header, WfdbSignalLine& signal, std::string_view field) {
    const auto slash = field.find('/');
    if (slash != std::string_view::npos && slash + 1 < field.size()) {
        signal.unit = field.substr(slash + 1);
    }
    const std::string_view numbers = field.substr(0, slash);
    const auto open = numbers.find('(');
    const double gain = ParseScale(header, numbers.substr(0, open), "gain");
    if (gain != 0.0 && std::abs(gain) < 1e-15) {
        FailSignal(header, "the gain " + Quoted(numbers) + ", which is too near 0");
    }
    signal.gain = gain == 0.0 ? 200.0 : gain;
    if (open == std::string_view::npos) {
        return false;
    }
    const std::string_view inner = numbers.substr(open + 1);
    signal.baseline = ParseScale(header, inner.substr(0, inner.find(')')), "baseline");
    return true;
}

WfdbSignalLine ParseSignalLine(const WfdbHeader& header, std::string_view line) {
    Fields fields(line);
    WfdbSignalLine signal;
    signal.file = fields.Next();
    ParseFormat(header, signal, fields.Next());
    const std::string_view gain = fields.Next();
    const bool hasBaseline = !gain.empty() && ParseGain(header, signal, gain);
    fields.Next(); // resolution
    const int64_t zero = LeadingWhole(fields.Next());
    signal.baseline = hasBaseline ? signal.baseline : static_cast<double>(zero);
    const std::string_view initial = fields.Next();
    signal.initial = initial.empty() ? zero : LeadingWhole(initial);
    fields.Next(); // checksum
    fields.Next(); // block size
    signal.description = fields.Rest();
    return signal;
}

void RequireBounded(const WfdbHeader& header) {
    int64_t perFrame = 0;
    for (std::size_t i = 0; i < header.signals.size(); ++i) {
        const WfdbSignalLine& signal = header.signals[i];
        perFrame += std::min(signal.samplesPerFrame, kMostPerFrame);
        if (signal.samplesPerFrame > kMostPerFrame || perFrame > kMostPerFrame) {
            Fail(kMaterial, header.path,
                 Format("signal %zu brings the samples of one frame above %lld.", i,
                        static_cast<long long>(kMostPerFrame)),
                 "Correct the number after the x in its format.");
        }
    }
}

void ParseSegments(WfdbHeader& header, const std::vector<std::string_view>& lines, int64_t count) {
    for (std::size_t i = 1; i < lines.size() && static_cast<int64_t>(i) <= count; ++i) {
        Fields fields(lines[i]);
        WfdbSegment segment;
        segment.name = fields.Next();
        const auto frames = ParseWhole(fields.Next());
        if (!frames || *frames < 0) {
            Fail(kMaterial, header.path,
                 Format("segment %zu has no number of samples.", header.segments.size()),
                 "Each segment's line reads NAME SAMPLES.");
        }
        segment.frames = *frames;
        header.segments.push_back(segment);
    }
    if (static_cast<int64_t>(header.segments.size()) < count) {
        Fail(kMaterial, header.path,
             Format("announces %lld segments and describes %zu.", static_cast<long long>(count),
                    header.segments.size()),
             "Is the header complete?");
    }
}

} // namespace

WfdbHeader ParseWfdbHeader(const std::string& path) {
    WfdbHeader header;
    header.path = path;
    const std::string text = ReadText(path, kLargestHeader);
    const auto lines = Lines(text, header);
    if (lines.empty()) {
        FailNoHeader(path);
    }
    int64_t segments = 0;
    const int64_t signals = ParseRecordLine(header, lines[0], segments);
    if (segments > 0) {
        ParseSegments(header, lines, segments);
        return header;
    }
    for (std::size_t i = 1; i < lines.size() && static_cast<int64_t>(i) <= signals; ++i) {
        header.signals.push_back(ParseSignalLine(header, lines[i]));
    }
    if (static_cast<int64_t>(header.signals.size()) < signals || signals == 0) {
        Fail(kMaterial, path,
             Format("announces %lld signals and describes %zu.", static_cast<long long>(signals),
                    header.signals.size()),
             "Each signal needs a line that begins with the name of its signal file.");
    }
    RequireBounded(header);
    return header;
}

} // namespace lab
