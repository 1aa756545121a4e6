/*
 * ravo.h - the RAVO library: ECG material out of eight analogue channels.
 *
 * A host connects (RAVOInit or RAVOConnect), loads material (one of the RAVOLoad functions),
 * plays it (RAVOOutputWaveform), stops (RAVOStopOutput) and lets go (RAVOFree).  There is one
 * simulator and one loaded record per process.
 *
 * Units: voltages are millivolts, frequencies hertz, time-outs milliseconds, rates samples per
 * second.
 *
 * Threads: every function may be called from any thread; calls wait for each other on one lock
 * that is not recursive.  Callbacks arrive on the library's own threads while that lock is free:
 *   listener (RAVOInit)             the connect thread; must not call RAVOFree
 *   progress (RAVOOutputWaveform)   the callback thread
 *   delay    (RAVOOutputWaveform)   the response reader; of this library it may call only
 *                                   RAVOStopOutput
 *
 * Signals: while output runs the library uses SIGUSR2 for its 10 ms timer.  Blocking calls of the
 * host can return early with EINTR meanwhile; a host that blocks SIGUSR2 in its threads is not
 * disturbed.  SIGUSR1 is reserved for a second timer.
 *
 * Errors are results: false, a null pointer.  Nothing is printed, nothing is thrown.
 */
#ifndef RAVO_RAVO_H
#define RAVO_RAVO_H

#include "../device/ModelInformation.h"
#include "../engine/BuiltinDatabase.h"
#include "../engine/Material.h"
#include "../WFDB/wfdb.h"

#include <assert.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define RAVO_API __attribute__((visibility("default")))
#else
#define RAVO_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Callbacks ---------------------------------------------------------------------------- */

/* Told of every connect (true) and every loss (false). */
typedef void (*RAVO_LISTENER)(bool connected);

/* The preview of one played sample: seconds since output start, position within the record in
 * seconds, twelve leads in millivolts (I, II, III, aVR, aVL, aVF, V1 to V6; valid during the call
 * only), and whether this is the last call of the run.  The preview runs at twice real time. */
typedef void (*RAVO_PROGRESS)(double time, double recordTime, double* leads, bool end);

/* The simulator reports that the host was late; the value is in the simulator's own unit. */
typedef void (*RAVO_DELAY)(int delay);

/* One sample of RAVOGetWaveformSignal: seconds from the start of the record, twelve leads in
 * millivolts as above, and whether the samples are over (the leads of that last call are 0). */
typedef void (*RAVO_SIGNAL)(double time, double* leads, bool end);

/* ---- Connection --------------------------------------------------------------------------- */

/* Starts searching all ports for the simulator and reports to `listener` (may be null), now and
 * after every loss, until RAVOFree.  Called again it only replaces the listener.  False only when
 * no thread could be started. */
RAVO_API bool RAVOInit(RAVO_LISTENER listener);

/* The same on /dev/ttyACM`port` alone; -1 searches all ports. */
RAVO_API bool RAVOInitPort(int port, RAVO_LISTENER listener);

/* Connects to /dev/ttyACM`port`, or to the first simulator found when `port` is -1, and waits.
 * The wait counts whole seconds: `timeout` below 1000 expires practically at once, else after
 * timeout/1000 - 1 to timeout/1000 seconds.  False when the simulator was not found in time;
 * everything started is torn down then.
 * CAUTION: after a time-out the calling thread must not call RAVOConnect again; it would wait for
 * ever.  A host that wants its own time-out or several attempts uses RAVOInit with a listener.
 * Called while already connected it waits in vain, disconnects and returns false. */
RAVO_API bool RAVOConnect(int port, unsigned int timeout);

/* Stops output, disconnects and stops searching.  The listener is not told.  Must not be called
 * from the listener. */
RAVO_API void RAVOFree(void);

/* ---- The simulator ------------------------------------------------------------------------ */

/* The serial number as text, in a buffer that the next call overwrites.  "TR" and nothing more
 * when no simulator was ever connected; the last one's after a loss. */
RAVO_API const char* RAVOGetSerialNumber(void);

/* Model and serial number of the simulator, from what it said when it was connected. Always true
 * for a non-null `information`. */
RAVO_API bool RAVOGetDeviceInformation(MODEL_INFORMATION* information);

/* How the connected simulator's outputs are driven. */
typedef struct RAVO_OUTPUT_INFORMATION {
    uint32_t DACBits;           /* 12 or 16 */
    uint32_t CalibrationLoaded; /* 1 when the calibration file was found and loaded */
    char DevicePath[512];       /* "/dev/ttyACM0", empty when not connected */
    char CalibrationFile[256];  /* where this unit's calibration file is looked for */
} RAVO_OUTPUT_INFORMATION;

static_assert(sizeof(RAVO_OUTPUT_INFORMATION) == 776, "size of RAVO_OUTPUT_INFORMATION");
static_assert(offsetof(RAVO_OUTPUT_INFORMATION, CalibrationLoaded) == 4,
              "place of CalibrationLoaded");
static_assert(offsetof(RAVO_OUTPUT_INFORMATION, DevicePath) == 8, "place of DevicePath");
static_assert(offsetof(RAVO_OUTPUT_INFORMATION, CalibrationFile) == 520,
              "place of CalibrationFile");

/* False when no simulator is connected or `information` is null. */
RAVO_API bool RAVOGetOutputInformation(RAVO_OUTPUT_INFORMATION* information);

/* ---- Material from files ------------------------------------------------------------------ */

/* Every loader stops output and replaces the loaded material.  The returned header belongs to the
 * caller, who releases it with RAVOFreeECGHeader; null means failure. */

/* Reads the header of a WFDB record ("/data/100.hea") and opens its signal file.  The caller may
 * edit the leads in the returned header and hand them back with RAVOUpdateECGHeaderMappingLead,
 * then loads the samples with RAVOLoadMITDatabase and frees the header only afterwards.  A record
 * too long for memory is shortened; NumberOfSamples tells. */
RAVO_API ECG_HEADER* RAVOLoadMITHeader(const char* path);

/* Loads the samples of the record; false when `header` is null or memory is refused.  A signal
 * file shorter than announced plays as silence where it ends.  A channel whose first minute
 * averages 5 mV or more away from 0 is centred. */
RAVO_API bool RAVOLoadMITDatabase(ECG_HEADER* header);

/* Takes the Lead of every signal of `header` as the new mapping of the loaded record. */
RAVO_API void RAVOUpdateECGHeaderMappingLead(ECG_HEADER* header);

/* Releases a header, the record that it holds and that record's files.  Null is ignored. */
RAVO_API void RAVOFreeECGHeader(ECG_HEADER* header);

/* Loads an AHA record, two leads at 250 per second: text when the path contains ".txt", binary
 * when it contains ".ecg". */
RAVO_API ECG_HEADER* RAVOLoadDatabaseAHA(const char* path);

/* Loads a CSE record, eight leads at 500 per second: binary when the path contains ".dcd", else
 * text. */
RAVO_API ECG_HEADER* RAVOLoadDatabaseCSE(const char* path);

/* Loads a record in the simulator's own text format. */
RAVO_API ECG_HEADER* RAVOLoadDatabaseTarnwick(const char* path);

/* Loads an EDF file: converts it into a WFDB record in the repository directory unless it is
 * already there, then loads that record's header.  As with RAVOLoadMITHeader the samples are
 * loaded with RAVOLoadMITDatabase, after which the host sets g_WaveformType to `type` again. */
RAVO_API ECG_HEADER* LoadDatabaseEDF(const char* path, WaveformType type);

/* The directory of converted EDF records, "c:\Physionet" until the host sets another.  The string
 * stays the host's. */
RAVO_API extern char* g_pszRepository;

/* The kind of loaded material, a WaveformType.  A host sets it after loading an EDF record's
 * samples, and never while output runs. */
RAVO_API extern int32_t g_WaveformType;

/* ---- Built-in material -------------------------------------------------------------------- */

/* Loads record `record` (a CTSCSE_Database, 0 to 118) of the compiled-in CTS/CSE database with
 * noise `noise` (a CTSCSE_Noise, 0 to 14; 14 is none). */
RAVO_API ECG_HEADER* RAVOLoadDatabaseCTS_CSE(int record, int noise);

/* What record `record` or noise `noise` of the database is, and whether its data are the licensed
 * ones or a generated stand-in.  Nothing is loaded.  False when there is none of that number or
 * `information` is null. */
RAVO_API bool RAVOGetBuiltinRecord(int record, RAVO_BUILTIN_RECORD* information);
RAVO_API bool RAVOGetBuiltinNoise(int noise, RAVO_BUILTIN_NOISE* information);

/* Waveforms on all eight leads.  Frequencies are rounded to 0.01 Hz and held to 0..100 Hz,
 * amplitudes (peak to peak) to -10..10 mV. */
RAVO_API bool RAVOLoadWaveform(int type, double frequency, double amplitude);
RAVO_API bool RAVOLoadWaveformRectanglePulse(int pulseWidth, double frequency, double amplitude);
RAVO_API bool RAVOLoadWaveformTrianglePulse(int pulseWidth, double frequency, double amplitude);

/* The same with an amplitude of its own for each output lead.  The array is corrected in place. */
RAVO_API bool RAVOLoadWaveformEx(int type, double frequency, double* amplitudes);

/* Ten seconds of a square wave between 0 and `amplitude`, low half first. */
RAVO_API bool RAVOLoadWaveformCalibrationMode(double frequency, double amplitude);

/* The staircase 0, 0.2, 1, 2, 5, -0.2, -1, -2, -5 mV, five seconds each. */
RAVO_API bool RAVOLoadWaveformAutoCalibrationMode(void);

/* Calls back for every sample of `seconds` seconds of the loaded material from `startSecond` on,
 * on the calling thread while the library's lock is held: the callback must not call the library.
 * False when nothing is loaded or `callback` is null. */
RAVO_API bool RAVOGetWaveformSignal(int startSecond, int seconds, RAVO_SIGNAL callback);

/* ---- Output ------------------------------------------------------------------------------- */

/* Whether playing starts over at its start position when the material ends. */
RAVO_API void RAVOEnableLoop(bool on);

/* Whether the noise of the built-in database is added to material of type 1. */
RAVO_API void RAVOEnableNoise(bool on);

/* Plays the loaded material from `startSecond` on; both callbacks may be null.  False when no
 * simulator is connected, nothing playable is loaded or the simulator does not take the start
 * command.
 * Without loop the end of the preview, which runs at twice real time, ends the output: a host that
 * wants the whole of a record once switches looping on and stops when the record has played. */
RAVO_API bool RAVOOutputWaveform(int startSecond, RAVO_PROGRESS progress, RAVO_DELAY delay);

/* Stops output and waits for its end.  On the delay callback it only requests the stop. */
RAVO_API void RAVOStopOutput(void);

/* Whether output runs. */
RAVO_API bool RAVOIsOutputting(void);

/* ---- Library ------------------------------------------------------------------------------ */

/* The library's version, one byte each of major, minor, patch and build: 0x01000504. */
RAVO_API unsigned int RAVOGetVersion(void);

#ifdef __cplusplus
} /* extern "C" */

/* Loads the noise stress test configured through WFDBNoiseTestExSetSignal and
 * WFDBNoiseTestExAddNoise.  Null when nothing is configured or the test fails. */
RAVO_API ECG_HEADER* LoadDatabaseNoiseTest();

/* Runs a one-noise test, but returns null also when it succeeds, and leaves its files in the
 * temporary directory; kept for the hosts that rely on the files.  Use the form above. */
RAVO_API ECG_HEADER* LoadDatabaseNoiseTest(const char* signal, const char* noise, int snr);
#endif

#endif /* RAVO_RAVO_H */
