#pragma once

#include <string>

namespace lab {

// A number as results and reports show it, and its value as shown: verdicts are taken on that one.
std::string NumberText(double number);
double AsPrinted(double number);

// "1 step", "2 steps"
std::string Counted(std::size_t count, const std::string& thing);

// Rounded to so many decimals.
double Rounded(double number, int decimals);

} // namespace lab
