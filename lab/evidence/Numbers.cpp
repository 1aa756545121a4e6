#include "lab/evidence/Numbers.h"

#include "lab/common/Failure.h"

#include <cmath>
#include <locale>
#include <sstream>

namespace lab {

std::string NumberText(double number) {
    return Format("%.10g", number == 0.0 ? 0.0 : number); // no "-0"
}

double AsPrinted(double number) {
    std::istringstream stream(NumberText(number));
    stream.imbue(std::locale::classic());
    double printed = number;
    stream >> printed;
    return printed;
}

std::string Counted(std::size_t count, const std::string& thing) {
    return std::to_string(count) + " " + thing + (count == 1 ? "" : "s");
}

double Rounded(double number, int decimals) {
    const double scale = std::pow(10.0, decimals);
    return AsPrinted(std::round(number * scale) / scale);
}

} // namespace lab
