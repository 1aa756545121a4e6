#include "lab/material/Treatment.h"

#include "lab/common/Failure.h"
#include "lab/material/Noise.h"

#include <algorithm>
#include <cmath>

namespace lab {
namespace {

constexpr double kLargestGain = 1000.0;

[[noreturn]] void FailGain(const std::string& entry) {
    Fail(kUsage, "--gain " + entry, "is neither FACTOR nor LEAD=FACTOR.",
         "FACTOR is a number from -1000 to 1000, LEAD one of I, II, V1 to V6.");
}

void TakeGain(Treatment& treatment, const std::string& entry) {
    const auto equals = entry.find('=');
    const auto factor = ParseNumber(
        equals == std::string::npos ? entry : std::string_view(entry).substr(equals + 1));
    if (!factor || std::fabs(*factor) > kLargestGain) {
        FailGain(entry);
    }
    if (equals == std::string::npos) {
        treatment.gain.fill(*factor);
        return;
    }
    const auto lead = LeadFromName(entry.substr(0, equals));
    if (!lead || *lead == ECG_LEAD_NONE) {
        FailGain(entry);
    }
    treatment.gain[static_cast<std::size_t>(*lead)] = *factor;
}

class TreatedReader : public SourceReader {
  public:
    TreatedReader(std::unique_ptr<SourceReader> reader, std::vector<ECG_Lead> leads,
                  const Treatment& treatment)
        : m_reader(std::move(reader)), m_leads(std::move(leads)), m_treatment(treatment) {
        m_record = m_reader->Record();
        for (SourceSignal& signal : m_record.signals) {
            const auto skipped = SkippedOf(signal);
            signal.samples = std::max<int64_t>(signal.samples - skipped, 0);
        }
        for (std::size_t i = 0; i < m_leads.size(); ++i) {
            if (m_leads[i] != ECG_LEAD_NONE && IsChanged(m_leads[i])) {
                m_record.signals[i].is16Bit = false;
            }
        }
        if (!treatment.noise.empty()) {
            m_noise = std::make_unique<Noise>(treatment.noise);
            const auto& files = m_noise->Files();
            m_record.files.insert(m_record.files.end(), files.begin(), files.end());
        }
    }

    void Begin(const std::vector<std::size_t>& signals) override {
        m_rows.clear();
        for (const std::size_t signal : signals) {
            Row& row = m_rows.emplace_back();
            row.lead = m_leads[signal];
            row.skipped = SkippedOf(m_record.signals[signal]);
            if (m_noise != nullptr && row.lead != ECG_LEAD_NONE) {
                row.noise =
                    m_noise->At(m_record.signals[signal].rate, static_cast<std::size_t>(row.lead));
            }
        }
        m_reader->Begin(signals);
    }

    bool Read(Samples& block) override {
        if (!m_reader->Read(block)) {
            return false;
        }
        for (std::size_t i = 0; i < m_rows.size(); ++i) {
            if (m_rows[i].lead != ECG_LEAD_NONE) {
                Treat(m_rows[i], block[i]);
            }
            Skip(m_rows[i], block[i]);
        }
        return true;
    }

    std::vector<SourceAnnotation> Annotations() override { return m_reader->Annotations(); }

  private:
    struct Row {
        ECG_Lead lead = ECG_LEAD_NONE;
        int64_t skipped = 0;       // samples still to be left out
        std::vector<double> noise; // one period
        std::size_t phase = 0;
    };

    bool IsChanged(ECG_Lead lead) const {
        return m_treatment.gain[static_cast<std::size_t>(lead)] != 1.0 ||
               m_treatment.offset != 0.0 || !m_treatment.noise.empty();
    }

    int64_t SkippedOf(const SourceSignal& signal) const {
        return std::llround(m_treatment.start * signal.rate.PerSecond());
    }

    void Treat(Row& row, std::vector<double>& samples) const {
        const double gain = m_treatment.gain[static_cast<std::size_t>(row.lead)];
        for (double& sample : samples) {
            sample = sample * gain + m_treatment.offset;
        }
        for (std::size_t i = 0; i < samples.size() && !row.noise.empty(); ++i) {
            samples[i] += row.noise[row.phase];
            row.phase = row.phase + 1 == row.noise.size() ? 0 : row.phase + 1;
        }
    }

    static void Skip(Row& row, std::vector<double>& samples) {
        const auto count = std::min(row.skipped, static_cast<int64_t>(samples.size()));
        samples.erase(samples.begin(), samples.begin() + static_cast<std::ptrdiff_t>(count));
        row.skipped -= count;
    }

    std::unique_ptr<SourceReader> m_reader;
    std::vector<ECG_Lead> m_leads;
    Treatment m_treatment;
    std::unique_ptr<Noise> m_noise;
    std::vector<Row> m_rows;
};

} // namespace

bool Treatment::IsNothing() const {
    const bool hasGain =
        std::any_of(gain.begin(), gain.end(), [](double factor) { return factor != 1.0; });
    return !hasGain && offset == 0.0 && noise.empty() && start == 0.0;
}

bool HasFraction(double start) {
    return start != std::floor(start);
}

Treatment TreatmentOf(const MaterialRequest& request) {
    Treatment treatment;
    treatment.gain.fill(1.0);
    for (const std::string& entry : request.gain) {
        TakeGain(treatment, entry);
    }
    treatment.offset = request.offset;
    treatment.noise = request.builtinNoise == "none" ? "" : request.builtinNoise;
    treatment.start = HasFraction(request.start) ? request.start : 0.0;
    return treatment;
}

std::unique_ptr<SourceReader> Treat(std::unique_ptr<SourceReader> reader,
                                    const std::vector<ECG_Lead>& leads,
                                    const Treatment& treatment) {
    if (treatment.IsNothing()) {
        return reader;
    }
    return std::make_unique<TreatedReader>(std::move(reader), leads, treatment);
}

} // namespace lab
