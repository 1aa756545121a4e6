#include "lab/material/Waveforms.h"

#include "lab/common/Failure.h"

namespace lab {
namespace {

bool LoadShape(WAVEFORM_TYPE shape, const MaterialRequest& request) {
    if (request.amplitude.size() == 1) {
        return RAVOLoadWaveform(shape, request.frequency, request.amplitude[0]);
    }
    std::vector<double> amplitudes = request.amplitude;
    return RAVOLoadWaveformEx(shape, request.frequency, amplitudes.data());
}

bool LoadNamedWaveform(const MaterialRequest& request) {
    const double amplitude = request.amplitude[0];
    if (request.name == "sine") {
        return LoadShape(WAVEFORM_SINE, request);
    }
    if (request.name == "triangle") {
        return LoadShape(WAVEFORM_TRIANGLE, request);
    }
    if (request.name == "square") {
        return LoadShape(WAVEFORM_SQUARE, request);
    }
    if (request.name == "rectangle-pulse") {
        return RAVOLoadWaveformRectanglePulse(request.width, request.frequency, amplitude);
    }
    if (request.name == "triangle-pulse") {
        return RAVOLoadWaveformTrianglePulse(request.width, request.frequency, amplitude);
    }
    if (request.name == "calibration") {
        return RAVOLoadWaveformCalibrationMode(request.frequency, amplitude);
    }
    return RAVOLoadWaveformAutoCalibrationMode();
}

bool IsPulse(const MaterialRequest& request) {
    return request.name == "rectangle-pulse" || request.name == "triangle-pulse";
}

std::string DescribeWaveform(const MaterialRequest& request) {
    if (request.name == "staircase") {
        return "staircase of 0.2, 1, 2 and 5 mV, up and down";
    }
    std::string text = Format("%s, %g Hz", request.name.c_str(), request.frequency);
    for (std::size_t i = 0; i < request.amplitude.size(); ++i) {
        text += Format("%s%g", i == 0 ? ", " : "/", request.amplitude[i]);
    }
    return text + " mV" + (IsPulse(request) ? Format(", %d ms", request.width) : "");
}

void RequireAmplitudes(const MaterialRequest& request) {
    const bool isShape =
        request.name == "sine" || request.name == "triangle" || request.name == "square";
    if (request.amplitude.size() == 1 || (isShape && request.amplitude.size() == kOutputCount)) {
        return;
    }
    Fail(kUsage, "--amplitude",
         Format("takes one value%s, not %zu.",
                isShape ? ", or eight for I, II, V1 to V6" : " for this waveform",
                request.amplitude.size()));
}

// An option that would be ignored shows a misunderstanding.
void RequireFittingOptions(const MaterialRequest& request) {
    for (const std::string& option : request.waveformOptions) {
        if (request.name == "staircase" || (option == "--width" && !IsPulse(request))) {
            Fail(kUsage, option, "has no meaning for the waveform " + request.name + ".");
        }
    }
}

} // namespace

void LoadWaveform(Record& record, const MaterialRequest& request) {
    RequireFittingOptions(request);
    if (!request.map.empty()) {
        Fail(kUsage, "--map", "has no meaning for a waveform.");
    }
    RequireAmplitudes(request);
    if (!LoadNamedWaveform(request)) {
        Fail(kMaterial, request.name, "cannot be loaded: memory was refused.");
    }
    record.source = DescribeWaveform(request);
    const bool isTable = g_WaveformType == MATERIAL_TABLE;
    const bool isStaircase = request.name == "staircase";
    record.isEndless = !isTable;
    record.rate = isTable && !isStaircase ? 360 : 1000;
    record.samples = !isTable ? 0 : isStaircase ? 45000 : 3600;
    for (std::size_t i = 0; i < kOutputCount; ++i) {
        record.signals.push_back({kOutputNames[i], static_cast<ECG_Lead>(i)});
    }
}

} // namespace lab
