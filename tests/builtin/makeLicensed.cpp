// Writes a folder of made-up "licensed" data: one record in microvolts, one noise in millivolts.
#include "tests/builtin/MadeUpData.h"

#include <filesystem>
#include <fstream>

int main(int argc, char** argv) {
    if (argc != 2) {
        return 1;
    }
    const std::filesystem::path folder = argv[1];
    std::ofstream record(folder / "CAL20000.txt");
    record << "# made up\n\nunit uV\n";
    for (int n = 0; n < madeup::kSamples; ++n) {
        for (int lead = 0; lead < 8; ++lead) {
            record << madeup::RecordValue(lead, n)
                   << (lead == 7    ? "\r\n"
                       : n % 2 == 0 ? ", "
                                    : "\t");
        }
    }
    std::ofstream noise(folder / "NOISE_50HZ.txt");
    noise << "unit mV\n";
    for (int n = 0; n < 10000; ++n) {
        noise << madeup::NoiseValue(n) / 1000.0 << '\n';
    }
    return record && noise ? 0 : 1;
}
