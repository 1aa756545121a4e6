/** @file
 * ravo.h - the RAVO library: plays ECG material on eight analogue channels.
 *
 * A host connects (RAVOInit or RAVOConnect), loads material (one of the RAVOLoad functions),
 * plays it (RAVOOutputWaveform), stops (RAVOStopOutput) and disconnects (RAVOFree).  There is one
 * simulator and one loaded record per process.
 *
 * Units: voltages are millivolts, frequencies hertz, time-outs and pulse widths milliseconds,
 * positions seconds, rates samples per second.
 *
 * Threads: every function may be called from any thread; calls wait for each other on one lock
 * that is not recursive.  Callbacks arrive on the library's own threads while that lock is free:
 *   - listener (RAVOInit): the connect thread; must not call RAVOFree
 *   - progress (RAVOOutputWaveform, RAVOOutputOnce): the callback thread
 *   - delay (RAVOOutputWaveform, RAVOOutputOnce): the response reader; of this library it may call
 *     only RAVOStopOutput, RAVOGetOutputPosition, RAVOGetSearchReport and RAVOGetLastError
 *
 * Signals: while output runs the library uses SIGUSR2 for its 10 ms timer.  Blocking calls of the
 * host can return early with EINTR meanwhile; a host that blocks SIGUSR2 in its threads is not
 * disturbed.  SIGUSR1 is reserved for a second timer.
 *
 * Errors are results: false, a null pointer.  RAVOGetLastError then says why (ravo/error.h).
 * Nothing is printed, nothing is thrown.
 *
 * Layout: the sizes and places asserted beside the structures are part of the binary interface.
 */
#ifndef RAVO_RAVO_H
#define RAVO_RAVO_H

#include "ravo/builtin.h"
#include "ravo/device.h"
#include "ravo/error.h"
#include "ravo/material.h"
#include "ravo/search.h"
#include "ravo/wfdb.h"

#include <assert.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** @name Callbacks
 * @{ */

/** Called for every connect and every loss, one at a time, on the connect thread.  While it runs,
 * the search pauses and no loss is noticed.
 * @param connected true for a connect, false for a loss */
typedef void (*RAVO_LISTENER)(bool connected);

/** The preview of one played sample.  The preview of RAVOOutputWaveform runs at twice real time,
 * that of RAVOOutputOnce at the pace of the outputs.  The samples come in order and one at a time;
 * a host that is slow slows them down.
 * @param time seconds of preview since output start
 * @param recordTime position within the record in seconds
 * @param leads twelve leads in millivolts: I, II, III, aVR, aVL, aVF, V1 to V6; valid during the
 *     call only
 * @param end whether this is the last call of the run */
typedef void (*RAVO_PROGRESS)(double time, double recordTime, double* leads, bool end);

/** The simulator reports that the host was late.
 * @param delay above 0, in the simulator's own unit */
typedef void (*RAVO_DELAY)(int delay);

/** One sample of RAVOGetWaveformSignal.
 * @param time seconds from the start of the record
 * @param leads twelve leads in millivolts, in the order of RAVO_PROGRESS; valid during the call
 * only
 * @param end whether the samples are over; the leads of that last call are 0 */
typedef void (*RAVO_SIGNAL)(double time, double* leads, bool end);

/** @} */
/** @name Connection
 * @{ */

/** Starts searching all ports, /dev/ttyACM0 to /dev/ttyACM127, for the simulator and reports to
 * `listener` (may be null), now and after every loss, until RAVOFree.  Returns at once.  Called
 * again it only replaces the listener and the port of the next search.
 * @param listener told of every connect and loss; may be null
 * @return false when no thread could be started, and from a listener while RAVOFree waits for it */
RAVO_API bool RAVOInit(RAVO_LISTENER listener);

/** The same on /dev/ttyACM`port` alone; -1 searches all ports.
 * @param port N of /dev/ttyACMN, 0 or more; -1 searches all ports
 * @param listener as for RAVOInit
 * @return as RAVOInit */
RAVO_API bool RAVOInitPort(int port, RAVO_LISTENER listener);

/** Connects to /dev/ttyACM`port`, or to the first simulator found when `port` is -1, and waits.
 * The wait counts whole seconds: `timeout` below 1000 expires practically at once, else after
 * timeout/1000 - 1 to timeout/1000 seconds.
 * CAUTION: after a time-out the calling thread must not call RAVOConnect again; it would wait
 * for ever.  A host that wants its own time-out or several attempts uses RAVOInit and
 * RAVOWaitConnected.
 * Called while already connected it waits in vain, disconnects and returns false.  From a
 * listener it only returns false.
 * @param port N of /dev/ttyACMN; -1 takes the first simulator found
 * @param timeout milliseconds, of which whole seconds count
 * @return false when the simulator was not found in time; everything started is torn down then */
RAVO_API bool RAVOConnect(int port, unsigned int timeout);

/** Waits until a simulator is connected, identified and can play, for `milliseconds` at most; 0
 * only looks.  To be called after RAVOInit, from any thread, as often as one likes; takes no
 * lock.
 * @param milliseconds the longest wait; 0 only looks
 * @return false when the time is up; at once when nothing searches for a simulator (before
 *     RAVOInit, from RAVOFree on), on the listener when none is connected, because it would wait
 *     for its own thread, and on the delay callback */
RAVO_API bool RAVOWaitConnected(unsigned int milliseconds);

/** Stops output, disconnects and stops searching; returns when that is done, after a second or
 * more when a search is under way.  Loaded material stays.  The listener is not told, and must
 * not call it.  Without a connection it returns at once. */
RAVO_API void RAVOFree(void);

/** @} */
/** @name The simulator
 * @{ */

/** The serial number as text: just "TR" when no simulator was ever connected, the last
 * one's after a loss.
 * @return at most 31 characters, in a buffer of the library that the next call overwrites */
RAVO_API const char* RAVOGetSerialNumber(void);

/** Model and serial number of the simulator, as it sent them when it was connected.  The
 * texts end with a zero; the bytes after it and a serial number that does not fit are left as the
 * caller had them.
 * @param information the caller's, filled
 * @return true for a non-null `information`, connected or not */
RAVO_API bool RAVOGetDeviceInformation(MODEL_INFORMATION* information);

/** How the connected simulator's outputs are driven. */
typedef struct RAVO_OUTPUT_INFORMATION {
    uint32_t DACBits;           /**< 12 or 16 */
    uint32_t CalibrationLoaded; /**< 1 when the calibration file was found and loaded */
    char DevicePath[512];       /**< "/dev/ttyACM0", empty when not connected */
    char CalibrationFile[256];  /**< where the file of a 12-bit unit is looked for */
} RAVO_OUTPUT_INFORMATION;

RAVO_LAYOUT(sizeof(RAVO_OUTPUT_INFORMATION) == 776, "size of RAVO_OUTPUT_INFORMATION");
RAVO_LAYOUT(offsetof(RAVO_OUTPUT_INFORMATION, CalibrationLoaded) == 4,
            "place of CalibrationLoaded");
RAVO_LAYOUT(offsetof(RAVO_OUTPUT_INFORMATION, DevicePath) == 8, "place of DevicePath");
RAVO_LAYOUT(offsetof(RAVO_OUTPUT_INFORMATION, CalibrationFile) == 520, "place of CalibrationFile");

/** How the outputs are driven, as found when the simulator was connected.
 * @param information the caller's, filled
 * @return false when no simulator is connected or `information` is null */
RAVO_API bool RAVOGetOutputInformation(RAVO_OUTPUT_INFORMATION* information);

/** @} */
/** @name Material from files
 *
 * Every loader stops output and replaces the loaded material.  The returned header belongs to the
 * caller, who releases it with RAVOFreeECGHeader.  Null means failure: a path that is null, a file
 * that cannot be read or is not of the format, memory refused.  What was loaded before may be gone
 * then; load again before playing.
 * @{ */

/** Reads the header of a WFDB record ("/data/100.hea", format: see wfdb.h) and opens its signal
 * file.  The caller may edit the leads in the returned header and hand them back with
 * RAVOUpdateECGHeaderMappingLead, then loads the samples with RAVOLoadMITDatabase and frees the
 * header only afterwards.  A record too long for memory is shortened, as NumberOfSamples shows.
 * @param path the header file
 * @return the caller's; null on failure */
RAVO_API ECG_HEADER* RAVOLoadMITHeader(const char* path);

/** Loads the samples of the record, in millivolts.  To be called once per header, which remembers
 * how far it was read.  A signal file shorter than announced plays as silence where it ends, and
 * one in a format that WFDBNextSample cannot read is silent from the start: true then, too.  A
 * channel whose first minute of samples averages 5 mV or more away from 0 is centred.
 * CAUTION: the samples play with the mapping and the leads of the header that was opened last,
 * whichever record they belong to.  A host that opens a second header before it loads the
 * samples of the first opens the first again.
 * @param header as RAVOLoadMITHeader returned it
 * @return false when `header` is null or memory is refused */
RAVO_API bool RAVOLoadMITDatabase(ECG_HEADER* header);

/** Takes the Lead of every signal of `header` as the new mapping of the loaded record.  The first
 * signal that claims a lead feeds it; ECG_LEAD_NONE feeds none.  Does not stop output: the new
 * mapping plays at once.  Without a loaded record or header it does nothing.
 * @param header stays the caller's; null is ignored */
RAVO_API void RAVOUpdateECGHeaderMappingLead(ECG_HEADER* header);

/** Releases a header, the record that it holds and that record's files.  Null is ignored.
 * @param header as a loader returned it; null is ignored */
RAVO_API void RAVOFreeECGHeader(ECG_HEADER* header);

/** Loads a record of the AHA database for evaluation of ventricular arrhythmia detectors, two
 * leads at 250 per second, 400 units per millivolt: text when the path contains ".txt", binary
 * when it contains ".ecg", in either letter case.
 * @param path the file
 * @return the caller's header; null on failure and for other names */
RAVO_API ECG_HEADER* RAVOLoadDatabaseAHA(const char* path);

/** Loads a record of the CSE multilead database, eight leads at 500 per second, in microvolts:
 * binary when the path contains ".dcd", in either letter case, else text.
 * @param path the file
 * @return the caller's header; null on failure */
RAVO_API ECG_HEADER* RAVOLoadDatabaseCSE(const char* path);

/** Loads a record in the simulator's own text format: eight leads in microvolts at any whole
 * rate, played resampled to 1000 per second.
 * @param path the file
 * @return the caller's header; null on failure */
RAVO_API ECG_HEADER* RAVOLoadDatabaseTarnwick(const char* path);

/** Loads an EDF file (Kemp et al., A simple format for exchange of digitized polygraphic
 * recordings, 1992; extension ".edf"): converts it into a WFDB record in the directory
 * g_pszRepository unless one of that name is already there, then loads that record's header.
 * CAUTION: the record's name is the file's, at most 15 characters.  Files whose names share
 * these, and files of one name in different folders, play the recording that was converted
 * first: give each its own g_pszRepository.  A blank in the name makes the converted header
 * unreadable.  As with RAVOLoadMITHeader the samples are loaded with RAVOLoadMITDatabase, after
 * which the host sets g_WaveformType to `type` again.  Takes the library's lock only for its
 * parts: not to be called while another thread loads.
 * @param path the EDF file
 * @param type MATERIAL_EDF or MATERIAL_EDF_FOUR_CHEST
 * @return the caller's header; null on failure */
RAVO_API ECG_HEADER* LoadDatabaseEDF(const char* path, WaveformType type);

/** The directory of converted EDF records, "c:\Physionet" until the host sets another.  The string
 * stays the host's. */
RAVO_API extern char* g_pszRepository;

/** @} */
/** @name Built-in material
 * @{ */

/** Loads record `record` (a CTSCSE_Database, 0 to 118) of the compiled-in CTS/CSE database, eight
 * leads at 1000 per second, with noise `noise` (a CTSCSE_Noise, 0 to 14; 14 is none), which
 * switches noise on or off as RAVOEnableNoise does.
 * @param record a CTSCSE_Database, 0 to 118
 * @param noise a CTSCSE_Noise, 0 to 14; 14 is none
 * @return the caller's header; null for other numbers */
RAVO_API ECG_HEADER* RAVOLoadDatabaseCTS_CSE(int record, int noise);

/** What record `record` of the database is, and whether its data are the licensed ones or a
 * generated stand-in.  Nothing is loaded.
 * @param record 0 to 118
 * @param information the caller's, filled
 * @return false when there is none of that number or `information` is null */
RAVO_API bool RAVOGetBuiltinRecord(int record, RAVO_BUILTIN_RECORD* information);

/** The same of noise `noise`.
 * @param noise 0 to 13
 * @param information the caller's, filled
 * @return false when there is none of that number or `information` is null */
RAVO_API bool RAVOGetBuiltinNoise(int noise, RAVO_BUILTIN_NOISE* information);

/** The samples of noise `noise` in millivolts, 10,000 values, which is ten seconds at 1000 per
 * second, after which it repeats.  Nothing is loaded.
 * @param noise 0 to 13
 * @param millivolts the caller's array of 10,000 values
 * @return false when there is none of that number or `millivolts` is null */
RAVO_API bool RAVOGetBuiltinNoiseSamples(int noise, double* millivolts);

/** @} */
/** @name Waveforms
 *
 * Waveforms stop output and replace the loaded material; false when memory is refused.  Frequencies
 * (hertz) are rounded to 0.01 Hz, half away from zero, and held to 0..100 Hz, amplitudes
 * (millivolts, peak to peak) to -10..10 mV.  A frequency of 0 is one period without end.
 *
 * Waveforms without end count their time in 32 bits.  After 24.8 days it is negative: a sine goes
 * on, a square or a rectangle pulse stays high, and triangles run below their range, down to what
 * the simulator holds.  Start a longer play again before.
 * @{ */

/** A waveform without end on all eight leads, between minus and plus half of `amplitude`, at 1000
 * samples per second.  `type` is a WAVEFORM_TYPE: sine and triangle start at 0, rising, the
 * square starts high.
 * @param type a WAVEFORM_TYPE
 * @param frequency 0 to 100 Hz
 * @param amplitude -10 to 10 mV, peak to peak
 * @return false when memory is refused and for another type, when output has been stopped all
 *     the same */
RAVO_API bool RAVOLoadWaveform(int type, double frequency, double amplitude);

/** The same for pulses of `pulseWidth` milliseconds that start each period: up to plus half of
 * `amplitude`, from minus half between them.  A width of 0 or less is no pulse.
 * @param pulseWidth milliseconds
 * @param frequency 0 to 100 Hz
 * @param amplitude -10 to 10 mV, peak to peak
 * @return false when memory is refused */
RAVO_API bool RAVOLoadWaveformRectanglePulse(int pulseWidth, double frequency, double amplitude);

/** The same for pulses that rise from minus to plus half of `amplitude` and fall again within
 * `pulseWidth` milliseconds.
 * @param pulseWidth milliseconds
 * @param frequency 0 to 100 Hz
 * @param amplitude -10 to 10 mV, peak to peak
 * @return false when memory is refused */
RAVO_API bool RAVOLoadWaveformTrianglePulse(int pulseWidth, double frequency, double amplitude);

/** RAVOLoadWaveform with an amplitude of its own for each output lead: eight values, I, II, V1 to
 * V6, which are held to -10..10 mV in the caller's array.  Another `type` is not refused here:
 * the kind of material loaded before is kept.
 * @param type a WAVEFORM_TYPE
 * @param frequency 0 to 100 Hz
 * @param amplitudes eight values of -10 to 10 mV, peak to peak
 * @return false when memory is refused or `amplitudes` is null */
RAVO_API bool RAVOLoadWaveformEx(int type, double frequency, double* amplitudes);

/** Ten seconds of a square wave between 0 and `amplitude`, low half first, on all eight leads at
 * 360 samples per second.
 * @param frequency 0 to 100 Hz
 * @param amplitude -10 to 10 mV
 * @return false when memory is refused */
RAVO_API bool RAVOLoadWaveformCalibrationMode(double frequency, double amplitude);

/** The staircase 0, 0.2, 1, 2, 5, -0.2, -1, -2, -5 mV, five seconds each, on all eight leads.
 * @return false when memory is refused */
RAVO_API bool RAVOLoadWaveformAutoCalibrationMode(void);

/** Calls back for every sample of `seconds` seconds of the loaded material from `startSecond` on,
 * or up to its end, and once more for the end, on the calling thread while the library's lock is
 * held: the callback must not call the library.  Seconds before the start are 0.  Output is
 * neither needed nor disturbed.
 * @param startSecond whole seconds from the start
 * @param seconds how many of them
 * @param callback called on this thread
 * @return false when nothing is loaded or `callback` is null */
RAVO_API bool RAVOGetWaveformSignal(int startSecond, int seconds, RAVO_SIGNAL callback);

/** @} */
/** @name Output
 * @{ */

/** Whether playing starts over at its start position when the material ends; off at first.  Holds
 * for every later material too, and may be changed while output runs.
 * @param on true to start over */
RAVO_API void RAVOEnableLoop(bool on);

/** Whether the noise chosen last with RAVOLoadDatabaseCTS_CSE is added to material of type
 * MATERIAL_DIRECT: built-in records and CSE files.  Holds until changed or until the next
 * built-in record, and may be changed while output runs.
 * @param on true to add the noise */
RAVO_API void RAVOEnableNoise(bool on);

/** Plays the loaded material from `startSecond` on, a whole second within it; both callbacks may
 * be null.  Output that runs is stopped first.  Returns after 100 ms, with output running.
 * Without loop the end of the preview, which runs at twice real time, ends the output: a host
 * that wants the whole of a record once uses RAVOOutputOnce.
 * @param startSecond a whole second within the material
 * @param progress gets the preview, on the callback thread; may be null
 * @param delay gets the delay reports, on the response reader; may be null
 * @return false when no simulator is connected and identified, nothing playable is loaded (no
 *     lead is fed, or the rate is 0) or the simulator does not accept the start command */
RAVO_API bool RAVOOutputWaveform(int startSecond, RAVO_PROGRESS progress, RAVO_DELAY delay);

/** Plays the loaded material once from `startSecond` on, to its end when `seconds` is 0, else for
 * that time at most, whatever looping says.  Output ends by itself when the simulator's requests
 * prove that the last frame has left the outputs.  After that frame the outputs hold it until
 * they are told to stop, for one buffer at most; nothing of the beginning is played again.
 * Noise that was switched on begins anew with it, so that a play that is repeated is the same one.
 * RAVOIsOutputting is false then, and RAVOGetOutputPosition's FramesPlayed is at least the
 * number of frames due: `seconds` times the rate, rounded.  An output that ended for another
 * reason has played fewer.
 * `progress` is called in real time, in step with the outputs; after the last sample it is
 * called once more, with leads of 0 and `end` true.  Waveforms without end play until they are
 * stopped when `seconds` is 0.
 * @param startSecond a whole second within the material
 * @param seconds 0 plays to the end
 * @param progress gets the preview, on the callback thread; may be null
 * @param delay gets the delay reports, on the response reader; may be null
 * @return false as RAVOOutputWaveform, and when `startSecond` is outside the material or
 *     `seconds` is negative or not a number */
RAVO_API bool RAVOOutputOnce(int startSecond, double seconds, RAVO_PROGRESS progress,
                             RAVO_DELAY delay);

/** Stops output and waits for its end: until the simulator's next request, at most 10 s for one
 * that no longer asks.  A progress call that is under way may end after it.  On the delay
 * callback it only requests the stop; while another thread stops it waits for that thread. */
RAVO_API void RAVOStopOutput(void);

/** Whether output runs, or rather its preview: true from its start to its end, which comes by
 * itself, by RAVOStopOutput or with the loss of the simulator.
 * @return true from the start of the preview to its end */
RAVO_API bool RAVOIsOutputting(void);

/** Where the output is, by the simulator's own clock: every request after the first proves that one
 * more buffer has left the outputs.  Times are CLOCK_MONOTONIC, in nanoseconds. */
typedef struct RAVO_OUTPUT_POSITION {
    uint64_t FramesSent;       /**< frames written to the simulator since this output started */
    uint64_t FramesPlayed;     /**< frames that its requests prove to have left its outputs */
    int64_t StartTime;         /**< when the start command was written */
    int64_t FirstRequestTime;  /**< when its first request was read; 0 before that */
    int64_t LastRequestTime;   /**< when the last one was read; 0 before the first */
    uint32_t Requests;         /**< requests read */
    uint32_t FramesPerRequest; /**< frames of one buffer: 150 with 16 bits, 250 with 12 */
    double NominalRate;        /**< frames per second that the programmed divider gives */
    double MeasuredRate;   /**< frames per second of this machine's clock, by the requests; 0 when
                            * too early to say, the first seconds */
    uint32_t DelayReports; /**< delay records read */
    uint32_t DelayTotal;   /**< sum of their values, in the simulator's own unit */
} RAVO_OUTPUT_POSITION;

RAVO_LAYOUT(sizeof(RAVO_OUTPUT_POSITION) == 72, "size of RAVO_OUTPUT_POSITION");
RAVO_LAYOUT(offsetof(RAVO_OUTPUT_POSITION, FramesPlayed) == 8, "place of FramesPlayed");
RAVO_LAYOUT(offsetof(RAVO_OUTPUT_POSITION, StartTime) == 16, "place of StartTime");
RAVO_LAYOUT(offsetof(RAVO_OUTPUT_POSITION, FirstRequestTime) == 24, "place of FirstRequestTime");
RAVO_LAYOUT(offsetof(RAVO_OUTPUT_POSITION, LastRequestTime) == 32, "place of LastRequestTime");
RAVO_LAYOUT(offsetof(RAVO_OUTPUT_POSITION, Requests) == 40, "place of Requests");
RAVO_LAYOUT(offsetof(RAVO_OUTPUT_POSITION, FramesPerRequest) == 44, "place of FramesPerRequest");
RAVO_LAYOUT(offsetof(RAVO_OUTPUT_POSITION, NominalRate) == 48, "place of NominalRate");
RAVO_LAYOUT(offsetof(RAVO_OUTPUT_POSITION, MeasuredRate) == 56, "place of MeasuredRate");
RAVO_LAYOUT(offsetof(RAVO_OUTPUT_POSITION, DelayReports) == 64, "place of DelayReports");
RAVO_LAYOUT(offsetof(RAVO_OUTPUT_POSITION, DelayTotal) == 68, "place of DelayTotal");

/** The position of the output that runs or, until the next start, of the last one.  Takes no
 * lock: it returns at once whatever other calls are under way, and may be called on every
 * callback.
 * Between two requests the outputs have played FramesPlayed and, at MeasuredRate or NominalRate,
 * what the time since LastRequestTime adds, but at most FramesPerRequest more.
 * @param position the caller's, filled
 * @return false when nothing was started yet or `position` is null */
RAVO_API bool RAVOGetOutputPosition(RAVO_OUTPUT_POSITION* position);

/** @} */
/** @name Library
 * @{ */

/** The library's version, one byte each of major, minor, patch and build: 0x01000504.
 * @return the first number in the highest byte */
RAVO_API unsigned int RAVOGetVersion(void);

/** @} */
#ifdef __cplusplus
} /* extern "C" */

/** @name Overloaded, hence with C++ linkage
 * @{ */

/** Loads the noise stress test configured through WFDBNoiseTestExSetSignal and
 * WFDBNoiseTestExAddNoise, samples included, by way of a temporary record that all processes of
 * the machine share.  Takes the library's lock only for its parts: not to be called while
 * another thread loads.
 * @return the caller's header; null when nothing is configured or the test fails */
RAVO_API ECG_HEADER* LoadDatabaseNoiseTest();

/** Runs a test with one noise at `snr` decibels, but returns null also when it succeeds, and
 * leaves its files in the temporary directory.
 * CAUTION: after a test that failed it loads what an earlier successful one left there.  Use the
 * form above.
 * @param signal path of the signal record
 * @param noise path of the noise record
 * @param snr decibels
 * @return null, but after a failed test the record that an earlier one left */
RAVO_API ECG_HEADER* LoadDatabaseNoiseTest(const char* signal, const char* noise, int snr);
#endif

#endif /* RAVO_RAVO_H */
/** @} */
