#include "api/main.h"

#include "api/Connection.h"
#include "device/Calibration.h"
#include "device/Device.h"
#include "device/Protocol.h"
#include "engine/CTSCSE.h"
#include "engine/LeadMapping.h"
#include "engine/loaders/LoadAHA.h"
#include "engine/loaders/LoadCSE.h"
#include "engine/loaders/LoadMIT.h"
#include "engine/loaders/LoadTarnwick.h"
#include "engine/loaders/LoadWaveform.h"
#include "engine/OutputPosition.h"
#include "engine/PlayRaw.h"
#include "engine/Preview.h"
#include "engine/Record.h"
#include "engine/ResponseReader.h"
#include "engine/Settings.h"
#include "platform/LastError.h"
#include "platform/Platform.h"
#include "platform/SharedValue.h"
#include "platform/Unload.h"
#include "ravo/ravo.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <exception>

namespace {

constexpr double kHighestFrequency = 100.0;
constexpr double kHighestAmplitude = 10.0;

char g_szReportedSerialNumber[32];

// Forwards under the API lock and turns an exception, which can only be refused memory, into the
// failure result.
template <typename Result, typename Call>
Result Forward(Result failure, Call call) {
    if (!IsCallAllowedHere()) {
        return failure;
    }
    try {
        const CAutoApiLock lock;
        if (IsLibraryLeft()) {
            SetLastFailure(RAVO_ERROR_CLOSING, "the library is shutting down");
            return failure;
        }
        return call();
    } catch (const std::exception&) {
        SetLastFailure(RAVO_ERROR_MEMORY, "no memory for the call");
        return failure;
    }
}

template <typename Call>
bool ForwardToBool(Call call) {
    return Forward(false, [&] { return call() != 0; });
}

template <typename Call>
void ForwardAction(Call call) {
    Forward(0, [&] {
        call();
        return 0;
    });
}

// For functions that touch the loaded material without the engine's lock: the loaders of EDF files
// and of noise stress tests take that lock alone.
template <typename Call>
auto WithEngineLocked(Call call) {
    const CAutoCriticalSection lock(g_CriticalSection);
    return call();
}

// False for null, with the reason that no `what` is given.
bool RequireArgument(const void* argument, const char* what) {
    if (argument == nullptr) {
        SetLastFailure(RAVO_ERROR_ARGUMENT, "no %s is given", what);
    }
    return argument != nullptr;
}

// False, with the reason, while no simulator is connected and known.
bool RequireDevice() {
    if (IsDeviceReady()) {
        return true;
    }
    if (DeviceIsConnected()) {
        SetLastFailure(RAVO_ERROR_NOT_IDENTIFIED,
                       "the device on the open port is not identified yet");
    } else {
        SetLastFailure(RAVO_ERROR_NOT_CONNECTED, "no simulator is connected");
    }
    return false;
}

// Calls a loader with its path; null counts as a missing file.
ECG_HEADER* ForwardToLoader(ECG_HEADER* (*load)(const char*), const char* path) {
    if (!RequireArgument(path, "path")) {
        return nullptr;
    }
    return Forward<ECG_HEADER*>(nullptr, [&] { return load(path); });
}

// Through a copy, because the connect thread may be replacing `serial` at this moment.
void CopySerial(char* text, unsigned long size, const char (&serial)[32]) {
    char copy[sizeof serial];
    LoadSharedBytes(copy, serial, sizeof copy);
    strncpy_s(text, size, copy, static_cast<unsigned long>(-1));
}

void DescribeOutput(RAVO_OUTPUT_INFORMATION& information) {
    information = RAVO_OUTPUT_INFORMATION();
    information.DACBits = LoadShared(g_nDACBit) != 0 ? 16 : 12;
    information.CalibrationLoaded = LoadShared(g_bDACAvailable) != 0 ? 1 : 0;
    LoadSharedBytes(information.DevicePath, g_szDevicePath, sizeof information.DevicePath);
    std::snprintf(information.CalibrationFile, sizeof information.CalibrationFile, "%s",
                  GetDACFilePath());
}

void DescribePosition(const OutputPosition& from, RAVO_OUTPUT_POSITION& to) {
    to.FramesSent = from.FramesSent;
    to.FramesPlayed = from.FramesPlayed;
    to.StartTime = from.StartTime;
    to.FirstRequestTime = from.FirstRequestTime;
    to.LastRequestTime = from.LastRequestTime;
    to.Requests = from.Requests;
    to.FramesPerRequest = from.FramesPerRequest;
    to.NominalRate = from.NominalRate;
    to.MeasuredRate = from.MeasuredRate;
    to.DelayReports = from.DelayReports;
    to.DelayTotal = from.DelayTotal;
}

// Set while a thread is stopping the output; guarded by the API lock.
bool BeginStopping(int32_t& stopping) {
    const CAutoApiLock lock;
    const bool first = stopping == 0;
    stopping = 1;
    return first;
}

} // namespace

void ValidateFrequency(double& frequency) {
    if (std::isnan(frequency)) {
        frequency = 0.0;
    }
    frequency = std::clamp(frequency, -1.0, kHighestFrequency + 1.0);
    const double half = frequency > 0.0 ? 0.005 : -0.005;
    frequency = static_cast<int32_t>((frequency + half) * 100.0) / 100.0;
    frequency = std::clamp(frequency, 0.0, kHighestFrequency);
}

void ValidateAmplitude(double& amplitude) {
    amplitude =
        std::isnan(amplitude) ? 0.0 : std::clamp(amplitude, -kHighestAmplitude, kHighestAmplitude);
}

unsigned int ConvertVersion(const char* version) {
    unsigned int parts[4] = {};
    if (version == nullptr) {
        return 0;
    }
    std::sscanf(version, "%u.%u.%u.%u", &parts[0], &parts[1], &parts[2], &parts[3]);
    return (parts[0] << 24) | (parts[1] << 16) | (parts[2] << 8) | parts[3];
}

// ---- The simulator -----------------------------------------------------------------------------

const char* RAVOGetSerialNumber() {
    return Forward<const char*>(g_szReportedSerialNumber, [] {
        char* text = g_szReportedSerialNumber;
        if (LoadShared(g_bIsISPSupported) != 0) {
            CopySerial(text, sizeof g_szReportedSerialNumber, g_strHWInfo);
        } else {
            std::memcpy(text, "TR", 2);
            CopySerial(text + 2, sizeof g_szReportedSerialNumber - 2, g_strSerialNumber);
        }
        return text;
    });
}

bool RAVOGetDeviceInformation(MODEL_INFORMATION* information) {
    return RequireArgument(information, "place for the information") &&
           ForwardToBool([&] { return GetModelInfo(information); });
}

bool RAVOGetOutputInformation(RAVO_OUTPUT_INFORMATION* information) {
    return RequireArgument(information, "place for the information") && ForwardToBool([&] {
               if (!RequireDevice()) {
                   return false;
               }
               DescribeOutput(*information);
               return true;
           });
}

// ---- Material from files -----------------------------------------------------------------------

ECG_HEADER* RAVOLoadMITHeader(const char* path) {
    return ForwardToLoader(LoadMITHeader, path);
}

bool RAVOLoadMITDatabase(ECG_HEADER* header) {
    return RequireArgument(header, "record header") &&
           ForwardToBool([&] { return LoadMITDatabase(header); });
}

void RAVOUpdateECGHeaderMappingLead(ECG_HEADER* header) {
    ForwardAction([&] { WithEngineLocked([&] { UpdateMappingLead(header); }); });
}

void RAVOFreeECGHeader(ECG_HEADER* header) {
    ForwardAction([&] { FreeECGHeader(header); });
}

ECG_HEADER* RAVOLoadDatabaseAHA(const char* path) {
    return ForwardToLoader(LoadDatabaseAHA, path);
}

ECG_HEADER* RAVOLoadDatabaseCSE(const char* path) {
    return ForwardToLoader(LoadDatabaseCSE, path);
}

ECG_HEADER* RAVOLoadDatabaseTarnwick(const char* path) {
    return ForwardToLoader(LoadDatabaseTarnwick, path);
}

// ---- Built-in material -------------------------------------------------------------------------

ECG_HEADER* RAVOLoadDatabaseCTS_CSE(int record, int noise) {
    return Forward<ECG_HEADER*>(nullptr, [&] {
        return LoadDatabaseCTS_CSE(static_cast<CTSCSE_Database>(record),
                                   static_cast<CTSCSE_Noise>(noise));
    });
}

bool RAVOGetBuiltinRecord(int record, RAVO_BUILTIN_RECORD* information) {
    return DescribeBuiltinRecord(record, information);
}

bool RAVOGetBuiltinNoise(int noise, RAVO_BUILTIN_NOISE* information) {
    return DescribeBuiltinNoise(noise, information);
}

bool RAVOGetBuiltinNoiseSamples(int noise, double* millivolts) {
    return CopyBuiltinNoise(noise, millivolts);
}

bool RAVOLoadWaveform(int type, double frequency, double amplitude) {
    ValidateFrequency(frequency);
    ValidateAmplitude(amplitude);
    return ForwardToBool(
        [&] { return LoadWaveform(static_cast<WAVEFORM_TYPE>(type), frequency, amplitude); });
}

bool RAVOLoadWaveformRectanglePulse(int pulseWidth, double frequency, double amplitude) {
    ValidateFrequency(frequency);
    ValidateAmplitude(amplitude);
    return ForwardToBool(
        [&] { return LoadWaveformRectanglePulse(pulseWidth, frequency, amplitude); });
}

bool RAVOLoadWaveformTrianglePulse(int pulseWidth, double frequency, double amplitude) {
    ValidateFrequency(frequency);
    ValidateAmplitude(amplitude);
    return ForwardToBool(
        [&] { return LoadWaveformTrianglePulse(pulseWidth, frequency, amplitude); });
}

bool RAVOLoadWaveformCalibrationMode(double frequency, double amplitude) {
    ValidateFrequency(frequency);
    ValidateAmplitude(amplitude);
    return ForwardToBool([&] { return LoadWaveformCalibrationMode(frequency, amplitude); });
}

bool RAVOLoadWaveformAutoCalibrationMode() {
    return ForwardToBool([] { return LoadWaveformAutoCalibrationMode(); });
}

bool RAVOLoadWaveformEx(int type, double frequency, double* amplitudes) {
    if (!RequireArgument(amplitudes, "array of amplitudes")) {
        return false;
    }
    ValidateFrequency(frequency);
    std::for_each(amplitudes, amplitudes + 8, ValidateAmplitude);
    return ForwardToBool(
        [&] { return LoadWaveformEx(static_cast<WAVEFORM_TYPE>(type), frequency, amplitudes); });
}

bool RAVOGetWaveformSignal(int startSecond, int seconds, RAVO_SIGNAL callback) {
    return ForwardToBool([&] {
        return WithEngineLocked([&] { return GetWaveformSignal(startSecond, seconds, callback); });
    });
}

// ---- Output ------------------------------------------------------------------------------------

void RAVOEnableLoop(bool on) {
    ForwardAction([&] { SetOutputLoop(on); });
}

void RAVOEnableNoise(bool on) {
    ForwardAction([&] { EnableNoise(on); });
}

bool RAVOOutputWaveform(int startSecond, RAVO_PROGRESS progress, RAVO_DELAY delay) {
    return ForwardToBool(
        [&] { return RequireDevice() ? OutputWaveform(startSecond, progress, delay) : 0; });
}

bool RAVOOutputOnce(int startSecond, double seconds, RAVO_PROGRESS progress, RAVO_DELAY delay) {
    return ForwardToBool(
        [&] { return RequireDevice() ? OutputOnce(startSecond, seconds, progress, delay) : 0; });
}

// The delay callback runs on the response reader, and a stop on another thread may be waiting for
// that reader to end while it holds the API lock.  From the callback the stop is therefore only
// requested.
void RAVOStopOutput() {
    static int32_t bStoppping = 0;
    if (IsResponseReader()) {
        StopOutput();
        return;
    }
    if (!IsCallAllowedHere() || !BeginStopping(bStoppping)) {
        return;
    }
    ForwardAction([] { StopOutput(); });
    ForwardAction([] { bStoppping = 0; });
}

bool RAVOIsOutputting() {
    return ForwardToBool([] { return IsOutputting(); });
}

bool RAVOGetOutputPosition(RAVO_OUTPUT_POSITION* position) {
    OutputPosition current;
    if (!RequireArgument(position, "place for the position")) {
        return false;
    }
    if (!GetOutputPosition(current)) {
        SetLastFailure(RAVO_ERROR_NOTHING_LOADED, "no output was ever started");
        return false;
    }
    DescribePosition(current, *position);
    return true;
}

// ---- Library -----------------------------------------------------------------------------------

unsigned int RAVOGetVersion() {
    return ConvertVersion(RAVO_VERSION);
}
