#pragma once

#include <functional>
#include <vector>

// The samples of the material that the library holds.
namespace lab {

// Calls `each` with the twelve leads in millivolts, unclamped, of every sample of `seconds` seconds
// from `startSecond` on, as far as the material goes. They include the noise that the library adds
// while playing, as if the play began at `startSecond`.
void ForEachSample(int startSecond, int seconds, const std::function<void(const double*)>& each);

// The same without that noise.
void ForEachCleanSample(int startSecond, int seconds,
                        const std::function<void(const double*)>& each);

// The noise that the library adds to the outputs, from a process's first play on: millivolts, one
// value for each frame, over and over. Empty when there is none.
const std::vector<double>& LibraryNoise();
void SetLibraryNoise(std::vector<double> noise);

} // namespace lab
