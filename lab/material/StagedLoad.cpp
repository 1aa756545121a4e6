#include "lab/material/StagedLoad.h"

#include "lab/common/Failure.h"
#include "lab/material/LeadStream.h"
#include "lab/material/LibraryLoad.h"
#include "lab/material/LoadedSamples.h"
#include "lab/material/Mapping.h"
#include "lab/material/RecordWriter.h"
#include "lab/material/Staging.h"

#include <algorithm>
#include <cmath>

namespace lab {
namespace {

constexpr const char* kStagedName = "staged";

void RequireVoltages(const Record& record, const SourceRecord& source,
                     const std::vector<std::size_t>& signals) {
    for (const std::size_t i : signals) {
        if (!source.signals[i].isVoltage) {
            FailUnit(record, i, source.signals[i].unit);
        }
    }
}

Rate HighestRate(const SourceRecord& source, const std::vector<std::size_t>& signals) {
    Rate highest = source.signals[signals[0]].rate;
    for (const std::size_t i : signals) {
        highest = highest < source.signals[i].rate ? source.signals[i].rate : highest;
    }
    return highest;
}

// Trends over minutes and hours feed no lead: raising their rates would take unlimited memory.
void RequireRates(const Record& record, const SourceRecord& source,
                  const std::vector<std::size_t>& signals) {
    constexpr double kLowest = 0.1;
    for (const std::size_t i : signals) {
        const double rate = source.signals[i].rate.PerSecond();
        if (rate < kLowest) {
            Fail(kMaterial, record.source,
                 Format("signal %zu \"%s\" has %g samples per second; below %g it is not played.",
                        i, Printable(source.signals[i].description).c_str(), rate, kLowest),
                 Format("Is the rate right? --map %zu=none leaves the signal out.", i));
        }
    }
}

void RequireBounded(const Record& record, const LeadStream& stream, const Rate& rate) {
    if (stream.Frames() > kMostSamples) {
        Fail(kMaterial, record.source,
             Format("would be %lld samples long at the %g per second at which it is played.",
                    static_cast<long long>(stream.Frames()), rate.PerSecond()),
             "Split it into shorter records.");
    }
}

// Reports every rate that differs from the source's own.
void TellResampling(Record& record, const SourceRecord& source,
                    const std::vector<std::size_t>& signals, const Rate& rate) {
    std::vector<double> told;
    for (const std::size_t i : signals) {
        const double from = source.signals[i].rate.PerSecond();
        if (source.signals[i].rate == rate ||
            std::find(told.begin(), told.end(), from) != told.end()) {
            continue;
        }
        told.push_back(from);
        record.resampledFrom = record.resampledFrom == 0.0 ? from : record.resampledFrom;
        record.warnings.push_back(Format(
            "%s: resampled from %s to %s samples per second (flat within 0.1 dB up to %g Hz)",
            Printable(record.name).c_str(), ShortestNumber(from).c_str(),
            ShortestNumber(rate.PerSecond()).c_str(), 0.4 * std::min(from, rate.PerSecond())));
    }
}

// Untreated 16-bit numbers are written as they are; any other signal is surveyed as a whole first.
bool IsExactAsIs(const SourceSignal& signal, const Rate& rate) {
    constexpr double kLargestBaseline = 32767.0;
    return signal.is16Bit && signal.rate == rate && signal.gain != 0.0 &&
           std::fabs(signal.baseline) <= kLargestBaseline &&
           std::fabs(signal.baseline - std::nearbyint(signal.baseline)) < 1e-6;
}

std::vector<Scale> ChooseScales(LeadStream& stream, const SourceRecord& source,
                                const std::vector<std::size_t>& signals, const Rate& rate) {
    std::vector<Scale> scales;
    std::vector<Survey> surveys;
    bool isExact = true;
    for (const std::size_t i : signals) {
        const SourceSignal& signal = source.signals[i];
        isExact = isExact && IsExactAsIs(signal, rate);
        scales.push_back({signal.gain, static_cast<int32_t>(std::clamp(
                                           std::nearbyint(signal.baseline), -2e9, 2e9))});
        surveys.emplace_back(signal);
    }
    if (isExact) {
        return scales;
    }
    Samples block;
    for (stream.Begin(); stream.Read(block);) {
        for (std::size_t i = 0; i < block.size(); ++i) {
            surveys[i].Look(block[i]);
        }
    }
    for (std::size_t i = 0; i < scales.size(); ++i) {
        scales[i] = surveys[i].Choose();
    }
    return scales;
}

// The library subtracts the mean of the first minute from a channel when it is 5 mV or more.
class Centring {
  public:
    Centring(std::size_t signals, const Rate& rate)
        : m_left(static_cast<int64_t>(60.0 * rate.PerSecond())), m_sums(signals) {}

    void Look(const Samples& block) {
        const auto count = static_cast<std::size_t>(
            std::min(m_left, block.empty() ? 0 : static_cast<int64_t>(block[0].size())));
        for (std::size_t i = 0; i < block.size(); ++i) {
            for (std::size_t n = 0; n < count; ++n) {
                m_sums[i] += block[i][n];
            }
        }
        m_left -= static_cast<int64_t>(count);
        m_count += static_cast<double>(count);
    }

    // An offset that the user requested is played or refused; one in the source is reported.
    void Tell(Record& record, const std::vector<std::size_t>& signals) const {
        for (std::size_t i = 0; i < m_sums.size() && m_count > 0.0; ++i) {
            const Signal& signal = record.signals[signals[i]];
            if (std::fabs(Mean(i)) >= kSafeLimit && IsMoved(record, signal.lead)) {
                FailCentred(signal, Mean(i), record.offset);
            }
            if (std::fabs(Mean(i)) >= kLibraryLimit) {
                record.warnings.push_back(
                    Format("%s: signal \"%s\" lies %.3f mV off zero and is centred",
                           Printable(record.name).c_str(), Printable(signal.description).c_str(),
                           Mean(i)));
            }
        }
    }

  private:
    static constexpr double kLibraryLimit = 5.0;

    // Samples are staged in whole steps, which may lift a mean from just below the limit to above
    // it.
    static constexpr double kSafeLimit = 4.999;

    double Mean(std::size_t row) const { return m_sums[row] / m_count; }

    static bool IsMoved(const Record& record, ECG_Lead lead) {
        return record.offset != 0.0 || record.gain[static_cast<std::size_t>(lead)] != 1.0;
    }

    [[noreturn]] void FailCentred(const Signal& signal, double mean, double offset) const {
        double least = -kSafeLimit;
        double most = kSafeLimit;
        for (std::size_t i = 0; i < m_sums.size(); ++i) {
            least = std::max(least, offset - kSafeLimit - Mean(i));
            most = std::min(most, offset + kSafeLimit - Mean(i));
        }
        Fail(kUsage, offset == 0.0 ? "--gain" : Format("--offset %g", offset),
             Format("brings the mean of signal \"%s\" to %.3f mV; the library centres a signal "
                    "that is 5 mV or more off zero.",
                    Printable(signal.description).c_str(), mean),
             least < most ? Format("Give an --offset above %.3f and below %.3f.", least, most)
                          : "Give a smaller --gain.");
    }

    int64_t m_left; // frames of the first minute that are still to come
    double m_count = 0.0;
    std::vector<double> m_sums;
};

std::vector<WrittenSignal> Written(const Record& record, const std::vector<std::size_t>& signals,
                                   const std::vector<Scale>& scales) {
    std::vector<WrittenSignal> written;
    for (std::size_t i = 0; i < signals.size(); ++i) {
        WrittenSignal signal;
        signal.description = LeadName(record.signals[signals[i]].lead);
        signal.scale = scales[i];
        written.push_back(signal);
    }
    return written;
}

void WriteStaged(OpenedMaterial& opened, const std::vector<std::size_t>& signals,
                 LeadStream& stream, const Rate& rate, const std::string& directory) {
    Record& record = opened.record;
    const auto scales = ChooseScales(stream, opened.reader->Record(), signals, rate);
    RecordWriter writer(directory, kStagedName, rate, Written(record, signals, scales));
    Centring centring(signals.size(), rate);
    Samples block;
    for (stream.Begin(); stream.Read(block);) {
        centring.Look(block);
        writer.Write(block);
    }
    writer.Finish("");
    centring.Tell(record, signals);
    for (std::size_t i = 0; i < signals.size(); ++i) {
        Signal& signal = record.signals[signals[i]];
        signal.missing = stream.Filled()[i];
        signal.gaps = stream.Gaps(i);
        signal.cut = opened.reader->Record().signals[signals[i]].cut;
    }
}

// Fails for a signal whose samples are all missing.
void RequireSamples(const OpenedMaterial& opened, const std::vector<std::size_t>& signals) {
    const SourceRecord& source = opened.reader->Record();
    const bool isEmpty = std::all_of(signals.begin(), signals.end(), [&](std::size_t i) {
        return opened.record.signals[i].missing >= source.signals[i].samples;
    });
    if (isEmpty) {
        Fail(kMaterial, opened.record.source, "lacks every sample of the signals that feed leads.",
             "Is the file complete? --map SIGNAL=LEAD plays another signal.");
    }
}

void TellMissing(Record& record, const std::string& played) {
    int64_t missing = 0;
    for (const Signal& signal : record.signals) {
        missing += signal.missing;
    }
    if (missing > 0) {
        record.warnings.push_back(Format("%s: %lld samples are missing and play as %s",
                                         Printable(record.name).c_str(),
                                         static_cast<long long>(missing),
                                         played == "zero" ? "0 mV" : "the last one before them"));
    }
}

[[noreturn]] void FailEmpty(const Record& record, const Rate& rate) {
    if (record.skippedSeconds > 0.0) {
        Fail(kUsage, Format("--start %.10g", record.skippedSeconds),
             "is past the end of " + Printable(record.name) + ".",
             "\"ravo info\" says how long it lasts.");
    }
    Fail(kMaterial, record.source,
         Format("is shorter than one sample at %g samples per second.", rate.PerSecond()),
         "Are its rate and its times right?");
}

} // namespace

void LoadStaged(OpenedMaterial& opened, const MaterialRequest& request) {
    Record& record = opened.record;
    const SourceRecord& source = opened.reader->Record();
    const auto signals = record.FeedingSignals();
    SetLibraryNoise({});
    if (signals.empty()) {
        record.rate = std::max<int64_t>(std::llround(source.signals[0].rate.PerSecond()), 1);
        record.samples = source.signals[0].samples;
        return;
    }
    RequireVoltages(record, source, signals);
    RequireRates(record, source, signals);
    const Rate rate = PlayableRate(HighestRate(source, signals));
    TellResampling(record, source, signals, rate);
    LeadStream stream(*opened.reader, signals, rate,
                      request.missing == "zero" ? Missing::kZero : Missing::kHold);
    if (stream.Frames() < 1) {
        FailEmpty(record, source.signals[signals[0]].rate);
    }
    RequireBounded(record, stream, rate);
    const bool wasEndless = record.isEndless;
    const TemporaryDirectory directory;
    try {
        WriteStaged(opened, signals, stream, rate, directory.Path());
    } catch (const Failure& failure) {
        if (failure.Status() == kCannotWrite) {
            Fail(kCannotWrite, directory.Path(), "has no room for the record to be played.",
                 "Make room there or set TMPDIR to another directory.");
        }
        throw;
    }
    RequireSamples(opened, signals);
    TellMissing(record, request.missing);
    LoadWfdbFile(record, directory.Path() + "/" + kStagedName + ".hea");
    record.type = MATERIAL_MIT;
    record.isEndless = wasEndless;
}

} // namespace lab
