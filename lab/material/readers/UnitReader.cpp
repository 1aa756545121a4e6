#include "lab/material/readers/UnitReader.h"

#include "lab/material/readers/Units.h"

#include <utility>

namespace lab {
namespace {

class UnitReader : public SourceReader {
  public:
    UnitReader(std::unique_ptr<SourceReader> reader, const std::string& unit)
        : m_reader(std::move(reader)) {
        m_record = m_reader->Record();
        const double perMillivolt = UnitsPerMillivolt(unit).value_or(1.0);
        for (SourceSignal& signal : m_record.signals) {
            m_perMillivolt.push_back(signal.isVoltage ? 1.0 : perMillivolt);
            signal.gain *= m_perMillivolt.back();
            signal.unit = signal.isVoltage ? signal.unit : unit;
            signal.isVoltage = true;
        }
    }

    void Begin(const std::vector<std::size_t>& signals) override {
        m_signals = signals;
        m_reader->Begin(signals);
    }

    bool Read(Samples& block) override {
        if (!m_reader->Read(block)) {
            return false;
        }
        for (std::size_t row = 0; row < m_signals.size(); ++row) {
            const double perMillivolt = m_perMillivolt[m_signals[row]];
            for (std::size_t i = 0; perMillivolt != 1.0 && i < block[row].size(); ++i) {
                block[row][i] /= perMillivolt;
            }
        }
        return true;
    }

    std::vector<SourceAnnotation> Annotations() override { return m_reader->Annotations(); }

  private:
    std::unique_ptr<SourceReader> m_reader;
    std::vector<double> m_perMillivolt; // of each signal
    std::vector<std::size_t> m_signals;
};

} // namespace

std::unique_ptr<SourceReader> WithUnit(std::unique_ptr<SourceReader> reader,
                                       const std::string& unit) {
    return std::make_unique<UnitReader>(std::move(reader), unit);
}

} // namespace lab
