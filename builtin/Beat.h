#pragma once

#include <array>
#include <cstddef>
#include <vector>

// One heart beat, synthesised: the heart's electrical dipole as sums of Gaussians over the phase
// of the beat in the three Frank leads (Sameni, Clifford, Jutten, Shamsollahi 2007), projected to
// the eight independent leads by the Dower matrix.
namespace synthesis {

// I, II, V1 to V6.
constexpr std::size_t kLeadCount = 8;

// One Gaussian of a beat. Phases and widths are radians of the beat, with the R wave at phase 0;
// the width is the Gaussian's standard deviation.
struct Wave {
    double phase;
    double millivolts;
    double width;
};

struct Beat {
    std::vector<Wave> x;
    std::vector<Wave> y;
    std::vector<Wave> z;
};

// The published normal beat at 60 beats per minute.
Beat NormalBeat();

// The beat at another heart rate. With h the square root of the beats per second, every width grows
// to h times itself, Q and S move to h times their phase and P and T to the square root of h times
// theirs (McSharry, Clifford, Tarassenko, Smith 2003).
Beat AtHeartRate(const Beat& beat, double beatsPerMinute);

// The leads in millivolts at `phase` radians, of any number of turns.
std::array<double, kLeadCount> LeadsAt(const Beat& beat, double phase);

} // namespace synthesis
