#pragma once

#include <string>

namespace lab {

// A number as results and reports show it, and its value as shown, on which verdicts are based.
std::string NumberText(double number);
double AsPrinted(double number);

// "1 step", "2 steps"
std::string Counted(std::size_t count, const std::string& thing);

// Rounded to `decimals` decimals.
double Rounded(double number, int decimals);

} // namespace lab
