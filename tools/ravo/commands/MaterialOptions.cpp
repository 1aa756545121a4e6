#include "tools/ravo/commands/MaterialOptions.h"

#include "tools/ravo/commands/Validators.h"

namespace cli {

using namespace lab;

namespace {

constexpr const char* kGroup = "Material";

// `ravo nst` takes several.
CLI::Validator OneRatio() {
    return {[](std::string& text) {
                return text.find(',') == std::string::npos
                           ? std::string()
                           : "\"" + text + "\" is more than one ratio";
            },
            ""};
}

// The treatment of the leads of any material.
void AddTreatmentOptions(CLI::App& command, MaterialRequest& request) {
    command
        .add_option("--gain", request.gain,
                    "FACTOR for all leads or LEAD=FACTOR for one; may be repeated")
        ->allow_extra_args(false)
        ->group(kGroup);
    command
        .add_option("--offset", request.offset, "Millivolts to add to every lead, after the gain")
        ->check(Between(-1000.0, 1000.0))
        ->group(kGroup);
    command
        .add_option("--noise", request.builtinNoise,
                    "Noise to add to every lead: a built-in one (\"ravo list\") or a WFDB record")
        ->group(kGroup);
}

// How to read files whose format leaves something open.
void AddReadingOptions(CLI::App& command, MaterialRequest& request) {
    command.add_option("--rate", request.rate, "CSV: samples per second")
        ->check(Between(0.001, 1e6))
        ->group(kGroup);
    command
        .add_option("--unit", request.unit,
                    "CSV, and signals whose unit is not a voltage: mV or uV")
        ->check(CLI::IsMember({"mV", "uV"}))
        ->group(kGroup);
    command
        .add_option("--missing", request.missing,
                    "How missing samples play: hold (as the last one before them) or zero")
        ->check(CLI::IsMember({"hold", "zero"}))
        ->capture_default_str()
        ->group(kGroup);
    command
        .add_flag("--as-edf", request.asEdf,
                  "EDF: play it as the library's own EDF loader does, lead I on I and II")
        ->group(kGroup);
}

} // namespace

void AddFormatOption(CLI::App& command, MaterialRequest& request) {
    command
        .add_option("--format", request.format,
                    "How to read the file if its extension does not say: wfdb, edf (BDF too), "
                    "edf-4 for the library's EDF without V5 and V6, csv, aha, cse, native")
        ->check(CLI::IsMember({"wfdb", "edf", "edf-4", "csv", "aha", "cse", "native"}))
        ->group(kGroup);
}

void AddMaterialOptions(CLI::App& command, MaterialRequest& request) {
    const std::string group = kGroup;
    const auto isForWaveforms = [&request](const char* option) {
        return [&request, option](const std::string& /*value*/) {
            request.waveformOptions.insert(option);
        };
    };
    AddFormatOption(command, request);
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
    command.add_option("--snr", request.signalToNoise, "Signal-to-noise ratio in dB")
        ->check(OneRatio())
        ->check(Between(-100.0, 100.0))
        ->needs(noise)
        ->group(group);
    AddTreatmentOptions(command, request);
    AddReadingOptions(command, request);
}

} // namespace cli
