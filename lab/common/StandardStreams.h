#pragma once

#include <string>

// What every program here owes whoever redirects or closes its standard streams.
namespace lab {

// Gives a standard stream that the caller has closed to nobody, so that no file or port which is
// opened later is taken for it. What is written to it fails.
void KeepStandard();

// Writes out what standard output still holds. Returns why some of it has not arrived, a full disk
// or a closed stream; empty when all of it has.
std::string OutputFailure();

} // namespace lab
