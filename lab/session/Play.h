#pragma once

#include "lab/common/Failure.h"
#include "lab/common/Interrupt.h"
#include "lab/common/Json.h"
#include "lab/material/Record.h"
#include "lab/session/Calibration.h"
#include "lab/session/PlayRequest.h"
#include "lab/session/Simulator.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

// One play from start to end, measured by the simulator's own requests for data.
namespace lab {

enum class Ending {
    kFinished,    // the requests prove that every frame due has been played
    kShort,       // output ended or stalled before all frames due were played
    kLost,        // the simulator was unplugged or did not accept the start command
    kInterrupted, // a signal requested the end
};

// The progress of a play, by the simulator's requests.
struct PlayPosition {
    double elapsed = 0;  // seconds of this machine's clock since the start command
    double played = 0;   // seconds of material proven to have left the outputs
    double due = 0;      // seconds of material to play; infinite without end
    double position = 0; // second within the material; wraps when it loops
    int64_t framesPlayed = 0;
    double measuredRate = 0; // frames per second of this machine's clock; 0: too early to say
    int delays = 0;
};

struct PlayResult {
    std::string record;
    std::string path;   // the file; empty for built-in material and waveforms
    std::string source; // "file", "licensed", "stand-in" or "waveform"
    std::string device;
    std::string model;
    std::string serial;
    std::string calibration; // CalibrationState
    std::string version;     // of the library
    std::string startedAt;   // ISO 8601 with offset, of the first request; empty without one
    std::string endedAt;     // of the last request
    std::string noise;       // its name; empty: none
    double start = 0;
    double seconds = 0;       // of material that the requests prove
    double secondsDue = 0;    // 0: without end
    double elapsed = 0;       // of this machine's clock
    double rate = 0;          // samples per second of the material
    double resampledFrom = 0; // those of its source, 0: the same
    double offset = 0;        // millivolts added to every lead
    int64_t missing = 0;      // samples that the source lacks, those cut off its end included
    double nominalRate = 0;
    double measuredRate = 0;
    int64_t framesDue = 0;    // 0: without end
    int64_t framesPlayed = 0; // of those due
    int64_t framesSent = 0;
    int64_t framesBeyondEnd = 0; // frames that may have left the outputs after the last one due
    int64_t requests = 0;
    int delays = 0;
    int largestDelay = 0;
    std::map<std::string, std::string> map; // output lead: signal
    std::map<std::string, double> gain;     // output lead: factor, where not 1
    std::map<std::string, double> clipped;  // lead: largest voltage in millivolts, above the range
    Ending ending = Ending::kFinished;
    bool isRefused = false; // lost because a connected simulator did not take the start command
    int signal = 0;         // that interrupted it
};

// Plays the loaded `record`, calls `progress` (may be empty) about five times a second on this
// thread, and stops the output. Fails before anything is sent when the request does not fit the
// record or the calibration forbids it; how the output itself ended is in the result. From the last
// frame due until the stop, which takes effect at a request, the outputs hold that frame; with
// PlayRequest::loop they continue with the material. After the stop they keep their last value.
PlayResult PlayLoaded(const PlayRequest& request, const Record& record, const Simulator& simulator,
                      const Interrupt& interrupt,
                      const std::function<void(const PlayPosition&)>& progress);

// Fails when the play would start past the record's end, or at a fraction of a second for which the
// record was not loaded (MaterialRequest::start).
void RequireStart(const PlayRequest& request, const Record& record);

// The result's fields, into an object that is open.
void WriteFields(Json& json, const PlayResult& result);

// "finished", "short", "lost" or "interrupted"
const char* EndingText(Ending ending);

// Why a play that fell short or was lost has failed; empty for one that finished or was
// interrupted.
std::optional<Failure> FailureOf(const PlayResult& result);

// Leads whose largest voltage, in millivolts, exceeds the range of the outputs.
std::map<std::string, double> ClippedLeads(const Record& record);

} // namespace lab
