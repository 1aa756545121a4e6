#pragma once

#include <string>
#include <vector>

// The formats in which the owner of the licensed databases has them: CSE files, EDF files and plain
// columns of text.
namespace ctscse {

struct Source {
    int rate;                               // samples per second
    std::vector<std::vector<double>> leads; // I, II, V1 to V6 in millivolts
};

// Reads a CSE record (".dcd" or text of twelve columns).
Source ReadCse(const std::string& path);

// Reads the physical values of an EDF file whose signals name the leads.  Throws std::runtime_error
// when one of the eight is not among them, or when another signal's rate would have it averaged.
Source ReadEdf(const std::string& path);

// Reads lines of eight numbers, the leads in the order above, `perMillivolt` units per millivolt;
// blank lines are skipped.
Source ReadColumns(const std::string& path, int rate, double perMillivolt);

// `samples` samples of every lead at 1000 per second, from sample `first` of the source on.  Values
// between the source's samples are interpolated linearly; the one after the last is the first,
// since a period repeats.  Throws std::runtime_error when the source is too short, its rate does
// not divide 1000 or the period is not a whole number of its samples.
std::vector<std::vector<double>> TakePeriod(const Source& source, size_t first, size_t samples);

} // namespace ctscse
