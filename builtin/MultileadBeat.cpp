#include "builtin/MultileadBeat.h"

#include "builtin/Beat.h"

#include <random>

namespace ctscse {
namespace {

using synthesis::Beat;
using synthesis::Wave;

constexpr double kTwoPi = 6.283185307179586;

// The place of R in the period, chosen so that the period shows a whole beat.
constexpr double kPlaceOfR = 0.35;

// Waves of the published beat before this phase are P waves.
constexpr double kLastPPhase = -0.5;

// Phases of the QRS waves at 60 beats a minute.
constexpr double kQPhase = -0.14;
constexpr double kSPhase = 0.12;

class Variation {
  public:
    // Neighbouring seeds produce similar first draws, so these are skipped.
    explicit Variation(unsigned record) : m_generator(record) { m_generator.discard(16); }

    // Uniform, and the same on every machine; the distributions of the standard library are not.
    double Between(double low, double high) {
        return low + (high - low) * (static_cast<uint32_t>(m_generator()) / 4294967295.0);
    }

  private:
    std::mt19937 m_generator;
};

std::vector<Wave> PWaves(const std::vector<Wave>& waves, double strength) {
    std::vector<Wave> pWaves;
    for (const Wave& wave : waves) {
        if (wave.phase < kLastPPhase) {
            pWaves.push_back({wave.phase, wave.millivolts * strength, wave.width});
        }
    }
    return pWaves;
}

// Three Gaussians, each later one higher and narrower, give T its slow rise and quick fall.
void AddTWave(std::vector<Wave>& waves, const double (&phases)[3], double height, double width) {
    waves.push_back({phases[0], height, width});
    waves.push_back({phases[1], 2.0 * height, width / 2.0});
    waves.push_back({phases[2], 3.0 * height, width / 4.0});
}

Beat DrawBeat(Variation& vary) {
    const Beat normal = synthesis::NormalBeat();
    const double pStrength = vary.Between(0.7, 1.3);
    const double qrsWidth = vary.Between(0.05, 0.08);
    const double tWidth = vary.Between(0.5, 0.7);
    const double frontalT[3] = {1.1, 1.4, 1.6};
    const double sagittalT[3] = {1.1, 1.2, 1.4};

    Beat beat{PWaves(normal.x, pStrength), PWaves(normal.y, pStrength),
              PWaves(normal.z, pStrength)};
    beat.x.push_back({kQPhase, vary.Between(-0.4, -0.05), qrsWidth});
    beat.x.push_back({0.0, vary.Between(0.4, 1.5), qrsWidth});
    AddTWave(beat.x, frontalT, vary.Between(0.02, 0.08), tWidth);

    beat.y.push_back({0.0, vary.Between(0.1, 0.7), qrsWidth});
    beat.y.push_back({kSPhase, vary.Between(-0.3, -0.05), qrsWidth});
    AddTWave(beat.y, frontalT, vary.Between(0.01, 0.03), tWidth);

    beat.z.push_back({kQPhase, vary.Between(-0.4, -0.05), qrsWidth});
    beat.z.push_back({kSPhase, vary.Between(0.1, 1.0), qrsWidth});
    AddTWave(beat.z, sagittalT, vary.Between(-0.06, -0.02), tWidth);
    return beat;
}

} // namespace

Leads MakeMultileadBeat(const RecordEntry& entry) {
    Variation variation(static_cast<unsigned>(std::stoi(entry.name.substr(4))));
    const double beatsPerMinute = 60.0 * kRate / entry.samplesPerLead;
    const Beat beat = synthesis::AtHeartRate(DrawBeat(variation), beatsPerMinute);
    Leads leads(kLeads);
    for (int n = 0; n < entry.samplesPerLead; ++n) {
        const double phase = kTwoPi * (static_cast<double>(n) / entry.samplesPerLead - kPlaceOfR);
        const auto values = synthesis::LeadsAt(beat, phase);
        for (size_t lead = 0; lead < leads.size(); ++lead) {
            leads[lead].push_back(values[lead]);
        }
    }
    return leads;
}

} // namespace ctscse
