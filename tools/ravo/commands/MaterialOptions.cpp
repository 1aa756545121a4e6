#include "tools/ravo/commands/MaterialOptions.h"

#include "tools/ravo/commands/Validators.h"

namespace cli {

using namespace lab;

void AddMaterialOptions(CLI::App& command, MaterialRequest& request) {
    const std::string group = "Material";
    const auto isForWaveforms = [&request](const char* option) {
        return [&request, option](const std::string& /*value*/) {
            request.waveformOptions.insert(option);
        };
    };
    command
        .add_option("--format", request.format,
                    "How to read the file, when its extension does not tell: wfdb, aha, cse, "
                    "native, edf, or edf-4 for EDF without V5 and V6")
        ->check(CLI::IsMember({"wfdb", "aha", "cse", "native", "edf", "edf-4"}))
        ->group(group);
    command
        .add_option("--map", request.map,
                    "SIGNAL=LEAD: play the signal with this description or number on output I, "
                    "II, V1 to V6, or none; may be repeated")
        ->allow_extra_args(false)
        ->group(group);
    command
        .add_option("--frequency", request.frequency, "Waveforms: frequency in Hz (0.01 to 100)")
        ->check(Between(0.01, 100.0))
        ->each(isForWaveforms("--frequency"))
        ->capture_default_str()
        ->group(group);
    command
        .add_option("--amplitude", request.amplitude,
                    "Waveforms: mV peak to peak (-10 to 10); sine, triangle and square also take "
                    "eight values A,A,... for I, II, V1 to V6")
        ->check(Between(-10.0, 10.0))
        ->each(isForWaveforms("--amplitude"))
        ->delimiter(',')
        ->allow_extra_args(false)
        ->group(group);
    command.add_option("--width", request.width, "Pulses: width in ms")
        ->check(CLI::Range(1, 100000))
        ->each(isForWaveforms("--width"))
        ->capture_default_str()
        ->group(group);
    auto* noise = command
                      .add_option("--noise-record", request.noise,
                                  "Mix this WFDB record as noise into the WFDB record")
                      ->group(group);
    command
        .add_option("--noise", request.builtinNoise,
                    "Built-in records: add this noise of the built-in database while playing")
        ->group(group);
    command.add_option("--snr", request.signalToNoise, "Signal-to-noise ratio in dB")
        ->check(Between(-100.0, 100.0))
        ->needs(noise)
        ->group(group);
}

} // namespace cli
