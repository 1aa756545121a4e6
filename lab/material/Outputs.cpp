#include "lab/material/Outputs.h"

#include "lab/common/Failure.h"
#include "lab/material/LoadedSamples.h"
#include "lab/material/Recognition.h"
#include "lab/material/WfdbFiles.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>

namespace lab {
namespace {

constexpr double kOutputLimit = 5.0;     // millivolts
constexpr double kThird = 0.33333333333; // the central terminal: a third of I + II
constexpr double kChestScale = 0.592731022038923;
constexpr double kPlainChestDivisor = 1.665; // two-signal and EDF material

struct FreeHeader {
    void operator()(WFDB_HEADER* header) const { WFDBFreeHeader(header); }
};

// The eight leads at one instant, in the order of the outputs.
using Instant = std::array<double, kOutputCount>;

double Clamp(double millivolts) {
    return std::clamp(millivolts, -kOutputLimit, kOutputLimit);
}

Instant ScaledChest(Instant leads) {
    for (double& lead : leads) {
        lead = Clamp(lead);
    }
    const double centre = (leads[0] + leads[1]) * kThird;
    for (std::size_t i = 2; i < kOutputCount; ++i) {
        leads[i] = Clamp((leads[i] + centre) * kChestScale);
    }
    return leads;
}

// Two-signal material has no chest leads: all chest outputs carry the central terminal.
Instant TwoSignals(Instant leads) {
    leads[0] = Clamp(leads[0]);
    leads[1] = Clamp(leads[1]);
    const double centre = (leads[0] + leads[1]) * kThird;
    std::fill(leads.begin() + 2, leads.end(), Clamp(centre / kPlainChestDivisor));
    return leads;
}

// EDF material puts lead I on both limb outputs and does not clamp the chest leads.
Instant EdfSignals(Instant leads) {
    leads[0] = Clamp(leads[0]);
    leads[1] = leads[0];
    const double centre = (leads[0] + leads[1]) * kThird;
    for (std::size_t i = 2; i < kOutputCount; ++i) {
        leads[i] = Clamp((leads[i] + centre) / kPlainChestDivisor);
    }
    return leads;
}

Instant OutputsOf(const Instant& leads, const Record& record) {
    return record.type == MATERIAL_AHA ? TwoSignals(leads)
           : record.IsLibraryEdf()     ? EdfSignals(leads)
                                       : ScaledChest(leads);
}

std::vector<Instant> ReadInstants(int startSecond, int seconds) {
    std::vector<Instant> instants;
    ForEachCleanSample(startSecond, seconds, [&](const double* leads) {
        Instant& instant = instants.emplace_back();
        for (std::size_t i = 0; i < kOutputCount; ++i) {
            instant[i] = leads[LeadOfOutput(i)];
        }
    });
    return instants;
}

void Append(Outputs& outputs, const Instant& instant) {
    for (std::size_t i = 0; i < kOutputCount; ++i) {
        outputs.millivolts[i].push_back(instant[i]);
    }
}

int WholeSeconds(std::size_t frames, int64_t rate) {
    const auto seconds = static_cast<int64_t>(frames) / rate + 1;
    return static_cast<int>(std::min<int64_t>(seconds, std::numeric_limits<int>::max()));
}

// Native text plays at 1000 frames per second, interpolated linearly between its samples; the last
// line continues past the last sample. It repeats from its beginning.
void AppendResampled(Outputs& outputs, const Record& record, int startSecond, std::size_t frames) {
    const auto instants =
        ReadInstants(0, WholeSeconds(static_cast<std::size_t>(record.samples), record.rate));
    const std::size_t count = instants.size();
    for (std::size_t frame = 0; frame < frames; ++frame) {
        const double millisecond = static_cast<double>(frame) + startSecond * 1000.0;
        const double position = millisecond / 1000.0 * static_cast<double>(record.rate);
        const auto whole = static_cast<std::size_t>(position);
        const double fraction = position - static_cast<double>(whole);
        const std::size_t at = whole % count;
        const bool isLast = at + 1 == count;
        Instant leads = instants[at];
        for (std::size_t i = 0; i < kOutputCount && count > 1; ++i) {
            const double step = isLast ? instants[at][i] - instants[at - 1][i]
                                       : instants[at + 1][i] - instants[at][i];
            leads[i] += step * fraction;
        }
        Append(outputs, OutputsOf(leads, record));
    }
}

void AppendSamples(Outputs& outputs, const Record& record, int startSecond, std::size_t frames) {
    const auto instants = ReadInstants(startSecond, WholeSeconds(frames, record.rate));
    const std::vector<double>& noise = LibraryNoise();
    for (std::size_t frame = 0; frame < frames && !instants.empty(); ++frame) {
        Instant instant = OutputsOf(instants[frame % instants.size()], record);
        for (std::size_t i = 0; i < kOutputCount && !noise.empty(); ++i) {
            instant[i] = Clamp(instant[i] + noise[frame % noise.size()]);
        }
        Append(outputs, instant);
    }
}

double LargestDifference(const Outputs& a, const Outputs& b, std::size_t frames) {
    double largest = 0.0;
    for (std::size_t i = 0; i < kOutputCount; ++i) {
        for (std::size_t n = 0; n < frames; ++n) {
            largest = std::max(largest, std::fabs(a.millivolts[i][n] - b.millivolts[i][n]));
        }
    }
    return largest;
}

void RequireOutputs(const std::string& path, const WFDB_HEADER* header) {
    if (header == nullptr || header->NumberOfSignals != static_cast<int64_t>(kOutputCount)) {
        Fail(kMaterial, path, "is not a record of the simulator's eight outputs.",
             "ravo-emulator writes such records.");
    }
    for (std::size_t i = 0; i < kOutputCount; ++i) {
        if (std::string(header->Signal[i].Description) != kOutputNames[i]) {
            Fail(kMaterial, path,
                 Format("has \"%s\" where a record of the outputs has %s.",
                        Printable(header->Signal[i].Description).c_str(), kOutputNames[i]),
                 "ravo-emulator writes such records.");
        }
    }
}

} // namespace

Outputs ReadOutputs(const std::string& path) {
    const std::string headerPath = HeaderPathOf(path);
    RequireFile(headerPath);
    std::vector<char> writable(headerPath.begin(), headerPath.end());
    writable.push_back('\0');
    const std::unique_ptr<WFDB_HEADER, FreeHeader> header(WFDBReadHeader(writable.data()));
    RequireOutputs(headerPath, header.get());
    const std::string directory = headerPath.substr(0, headerPath.find_last_of('/'));
    const bool isOpen = WFDBLoadSignal(directory.c_str(), header.get()) != 0;
    Outputs outputs;
    outputs.rate = header->SamplingFrequency;
    Instant instant{};
    while (isOpen && WFDBNextSample(header.get(), instant.data(), 1) == 1) {
        Append(outputs, instant);
    }
    if (outputs.Frames() == 0 || outputs.rate < 1) {
        Fail(kMaterial, headerPath, "holds no frames.", "Was anything played into it?");
    }
    return outputs;
}

Outputs ExpectedOutputs(const Record& record, int startSecond, std::size_t frames) {
    Outputs outputs;
    outputs.rate = record.FramesPerSecond();
    if (record.type == MATERIAL_TARNWICK) {
        AppendResampled(outputs, record, startSecond, frames);
    } else {
        AppendSamples(outputs, record, startSecond, frames);
    }
    return outputs;
}

int FindStart(const Record& record, const Outputs& outputs) {
    const std::size_t probe = std::min(outputs.Frames(), static_cast<std::size_t>(outputs.rate));
    const double seconds = record.isEndless ? 1.0 : std::ceil(record.Seconds());
    int best = 0;
    double smallest = std::numeric_limits<double>::infinity();
    for (int second = 0; second < seconds; ++second) {
        const Outputs expected = ExpectedOutputs(record, second, probe);
        const double difference = LargestDifference(expected, outputs, expected.Frames());
        if (difference < smallest) {
            smallest = difference;
            best = second;
        }
    }
    return best;
}

Leads LeadsOf(const Outputs& outputs, const Record& record) {
    const bool isPlain = record.type == MATERIAL_AHA || record.IsLibraryEdf();
    const double scale = isPlain ? 1.0 / kPlainChestDivisor : kChestScale;
    Leads leads;
    for (std::size_t n = 0; n < outputs.Frames(); ++n) {
        const double one = outputs.millivolts[0][n];
        const double two = outputs.millivolts[1][n];
        const double three = two - one;
        const std::array<double, 6> limb = {
            one, two, three, (one + two) * -0.5, (one - three) * 0.5, (two + three) * 0.5};
        for (std::size_t i = 0; i < limb.size(); ++i) {
            leads[i].push_back(limb[i]);
        }
        const double centre = (one + two) * kThird;
        for (std::size_t i = 2; i < kOutputCount; ++i) {
            leads[LeadOfOutput(i)].push_back(outputs.millivolts[i][n] / scale - centre);
        }
    }
    return leads;
}

} // namespace lab
