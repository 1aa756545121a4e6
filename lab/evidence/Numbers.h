#pragma once

#include <string>

namespace lab {

// A number as results and reports show it, and its value as shown: verdicts are taken on that one.
std::string NumberText(double number);
double AsPrinted(double number);

// Rounded to so many decimals.
double Rounded(double number, int decimals);

} // namespace lab
