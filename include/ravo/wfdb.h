/** @file
 * wfdb.h - reading and making PhysioNet WFDB ("MIT") records.
 *
 * A record is a text header (".hea"), one signal file of packed samples (".dat", formats 16 and
 * 212) and optionally an annotation file (".atr").  The formats are those published by PhysioNet
 * in "WFDB Applications Guide", header(5), signal(5) and annot(5); where this library departs
 * from them, the function concerned says so.
 *
 * Threads: the record library keeps reading state in process-wide variables and is not
 * reentrant.  Call it from one thread at a time, and not while another thread is inside a RAVO
 * function that loads material: the loaders use it too.
 *
 * Errors are results: 0, a null pointer or a short count.  RAVOGetLastError then says why
 * (ravo/error.h).  Nothing is printed, nothing is thrown.
 *
 * Memory: a header belongs to the caller of WFDBReadHeader and is released with WFDBFreeHeader; an
 * array that a function returns is released with WFDBMemFree.  Paths are not changed, even where
 * they are not declared const.
 *
 * Layout: the structures are packed to 1 byte; the sizes and places asserted beside them are part
 * of the binary interface.
 */
#ifndef RAVO_WFDB_H
#define RAVO_WFDB_H

#include "ravo/error.h"

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma pack(push, 1)

/** One signal of a record, as its line of the header file describes it. */
typedef struct WFDB_SIGNAL {
    char FileName[256];      /**< signal file as written in the header, without directory */
    int32_t Format;          /**< storage format; 16 and 212 are readable */
    int32_t SamplesPerFrame; /**< stored samples that make up one frame's value, at least 1 */
    int32_t Skew;            /**< skew in frames, at least 0 */
    int32_t ByteOffset;      /**< byte offset as given, at least 0; not used when reading */
    double ADCGain;          /**< ADC units per physical unit; never 0, 200 when not given */
    int32_t ADCBaseLine;     /**< ADC value that corresponds to physical 0 */
    char ADCUnit;            /**< first character of the physical unit, 0 when not given */
    char Reserved[3];        /**< zero */
    int32_t ADCResolution;   /**< bits */
    int32_t ADCZero;         /**< ADC value at the middle of the converter's range */
    int32_t InitialValue;    /**< first sample as given */
    int32_t Checksum;        /**< as given; never verified */
    int32_t BlockSize;       /**< as given; never used */
    char Description[16];    /**< at most 15 characters, trailing white space removed */
} WFDB_SIGNAL;

/** A record.  One heap block; Signal extends to NumberOfSignals entries. */
typedef struct WFDB_HEADER {
    char RecordName[256];      /**< cut at the first "/" */
    int32_t NumberOfSetments;  /**< segments; never parsed, always 0 (the spelling is kept) */
    int64_t NumberOfSignals;   /**< entries in Signal */
    int64_t SamplingFrequency; /**< frames per second, integer part */
    int32_t CounterFrequency;  /**< never parsed, always 0 */
    int32_t BaseCounter;       /**< never parsed, always 0 */
    int64_t NumberOfSamplesPerSignal; /**< frames in the record */
    char BaseTime[16];                /**< as written, at most 15 characters */
    char BaseDate[16];                /**< as written, at most 15 characters */
    uint8_t Reserved[32];             /**< the reader's own state: open files, pending sample */
    WFDB_SIGNAL Signal[1];            /**< the first of NumberOfSignals */
} WFDB_HEADER;

/** One annotation of an annotation file. */
typedef struct WFDB_ANNOTATION {
    uint32_t Time;    /**< frames from the start of the record */
    uint8_t Type;     /**< annotation code, 0 to 58 (59 when the file begins with a skip) */
    uint8_t Reserved; /**< 0 */
    uint16_t SubType; /**< from a SUB word after the annotation, else 0 */
    uint16_t Channel; /**< current channel; keeps its value until the next CHN word */
    uint16_t Number;  /**< current number; keeps its value until the next NUM word */
    char AuxText[32]; /**< auxiliary text, at most 31 bytes, terminated */
} WFDB_ANNOTATION;

#pragma pack(pop)

RAVO_LAYOUT(sizeof(WFDB_SIGNAL) == 324, "size of WFDB_SIGNAL");
RAVO_LAYOUT(offsetof(WFDB_SIGNAL, Format) == 256, "place of Format");
RAVO_LAYOUT(offsetof(WFDB_SIGNAL, SamplesPerFrame) == 260, "place of SamplesPerFrame");
RAVO_LAYOUT(offsetof(WFDB_SIGNAL, Skew) == 264, "place of Skew");
RAVO_LAYOUT(offsetof(WFDB_SIGNAL, ByteOffset) == 268, "place of ByteOffset");
RAVO_LAYOUT(offsetof(WFDB_SIGNAL, ADCGain) == 272, "place of ADCGain");
RAVO_LAYOUT(offsetof(WFDB_SIGNAL, ADCBaseLine) == 280, "place of ADCBaseLine");
RAVO_LAYOUT(offsetof(WFDB_SIGNAL, ADCUnit) == 284, "place of ADCUnit");
RAVO_LAYOUT(offsetof(WFDB_SIGNAL, Reserved) == 285, "place of Reserved");
RAVO_LAYOUT(offsetof(WFDB_SIGNAL, ADCResolution) == 288, "place of ADCResolution");
RAVO_LAYOUT(offsetof(WFDB_SIGNAL, ADCZero) == 292, "place of ADCZero");
RAVO_LAYOUT(offsetof(WFDB_SIGNAL, InitialValue) == 296, "place of InitialValue");
RAVO_LAYOUT(offsetof(WFDB_SIGNAL, Checksum) == 300, "place of Checksum");
RAVO_LAYOUT(offsetof(WFDB_SIGNAL, BlockSize) == 304, "place of BlockSize");
RAVO_LAYOUT(offsetof(WFDB_SIGNAL, Description) == 308, "place of Description");
RAVO_LAYOUT(sizeof(WFDB_HEADER) == 680, "size of WFDB_HEADER");
RAVO_LAYOUT(offsetof(WFDB_HEADER, NumberOfSetments) == 256, "place of NumberOfSetments");
RAVO_LAYOUT(offsetof(WFDB_HEADER, NumberOfSignals) == 260, "place of NumberOfSignals");
RAVO_LAYOUT(offsetof(WFDB_HEADER, SamplingFrequency) == 268, "place of SamplingFrequency");
RAVO_LAYOUT(offsetof(WFDB_HEADER, CounterFrequency) == 276, "place of CounterFrequency");
RAVO_LAYOUT(offsetof(WFDB_HEADER, BaseCounter) == 280, "place of BaseCounter");
RAVO_LAYOUT(offsetof(WFDB_HEADER, NumberOfSamplesPerSignal) == 284,
            "place of NumberOfSamplesPerSignal");
RAVO_LAYOUT(offsetof(WFDB_HEADER, BaseTime) == 292, "place of BaseTime");
RAVO_LAYOUT(offsetof(WFDB_HEADER, BaseDate) == 308, "place of BaseDate");
RAVO_LAYOUT(offsetof(WFDB_HEADER, Reserved) == 324, "place of Reserved");
RAVO_LAYOUT(offsetof(WFDB_HEADER, Signal) == 356, "place of Signal");
RAVO_LAYOUT(sizeof(WFDB_ANNOTATION) == 44, "size of WFDB_ANNOTATION");
RAVO_LAYOUT(offsetof(WFDB_ANNOTATION, Type) == 4, "place of Type");
RAVO_LAYOUT(offsetof(WFDB_ANNOTATION, Reserved) == 5, "place of Reserved");
RAVO_LAYOUT(offsetof(WFDB_ANNOTATION, SubType) == 6, "place of SubType");
RAVO_LAYOUT(offsetof(WFDB_ANNOTATION, Channel) == 8, "place of Channel");
RAVO_LAYOUT(offsetof(WFDB_ANNOTATION, Number) == 10, "place of Number");
RAVO_LAYOUT(offsetof(WFDB_ANNOTATION, AuxText) == 12, "place of AuxText");

/** @name Records
 * @{ */

/** Reads the header file `path` ("/data/100.hea").  Only signals stored in a file whose name
 * contains ".dat" are taken, so NumberOfSignals can be smaller than the header declares.
 * @param path the header file
 * @return the caller's; null when the file cannot be opened, when its first line lacks record
 *     name, signal count, frequency or sample count, or when memory for the declared number of
 *     signals is refused */
RAVO_API WFDB_HEADER* WFDBReadHeader(char* path);

/** Releases a header and closes the files that it holds.  Null is ignored.
 * @param header as WFDBReadHeader returned it; null is ignored */
RAVO_API void WFDBFreeHeader(WFDB_HEADER* header);

/** Releases an array that this library returned.  Null is ignored.
 * @param memory as a function of this library returned it; null is ignored */
RAVO_API void WFDBMemFree(void* memory);

/** @} */
/** @name Signals
 * @{ */

/** Opens the signal file of the record, the file named by its first signal, in `directory` (with
 * or without a trailing "/"; empty means the current directory).  Call it once per header: an
 * earlier open file would be forgotten, not closed.
 * @param directory of the signal file; empty for the current one
 * @param header the record's
 * @return 1 on success, else 0 */
RAVO_API int WFDBLoadSignal(const char* directory, WFDB_HEADER* header);

/** Reads up to `frames` frames in physical units into `out`, which has room for NumberOfSignals x
 * frames values, one value per signal and frame in header order; a signal with several samples
 * per frame yields their mean.
 * @param header the record's
 * @param out room for NumberOfSignals x `frames` values
 * @param frames how many at most
 * @return the number of whole frames read: fewer than asked at the end of the file, 0 when the
 *     record is not readable */
RAVO_API int WFDBNextSample(WFDB_HEADER* header, double* out, int frames);

/** Moves to the time `seconds` from the start.  A time past the end moves to the start, a
 * negative one fails.  In format 212 an odd number of samples before the wanted frame leaves the
 * reader one byte inside a sample triple; this behaviour is kept.
 * @param header the record's
 * @param seconds 0 to the record's end
 * @return 1 on success, else 0 */
RAVO_API int WFDBSeek(WFDB_HEADER* header, int seconds);

/** @} */
/** @name Annotations
 * @{ */

/** Opens the annotation file `path` for this header and closes the one opened before.  Only one
 * annotation file in the process can be read at a time.
 * @param path the annotation file
 * @param header the record's
 * @return 1 on success; 0 when the header is null, the file cannot be opened or holds no
 *     annotation word */
RAVO_API int WFDBLoadAnnotation(const char* path, WFDB_HEADER* header);

/** Reads the next annotation into `out`.
 * @param header the record's
 * @param out the caller's, filled
 * @return 1 with an annotation; 0 at the end, on a read error and when no annotation file is
 *     open */
RAVO_API int WFDBNextAnnotation(WFDB_HEADER* header, WFDB_ANNOTATION* out);

/** Goes back to the first annotation.  The current channel and number keep their values.
 * @param header the record's */
RAVO_API void WFDBAnnotationSeekBegin(WFDB_HEADER* header);

/** @} */
/** @name Amplitude
 * @{ */

/** Measures one typical amplitude per signal, in ADC units: peak to peak around annotated beats
 * when an annotation file is open, else the RMS deviation in windows of 360 frames.  At most 300
 * beats or windows are measured; missing ones count as 0.  Moves the reading position.
 * @param header the record's
 * @param count gets the number of values; may be null
 * @return NumberOfSignals values, to be released with WFDBMemFree */
RAVO_API double* WFDBSignalAmplitude(WFDB_HEADER* header, int* count);

/** The same for the record named by a file path; its annotation file is RECORD.atr beside it.
 * @param path the header file
 * @param count gets the number of values; may be null
 * @return as WFDBSignalAmplitude; null, with `*count` 0, when the record cannot be opened */
RAVO_API double* WFDBSignalAmplitudeEx(char* path, int* count);

/** @} */
/** @name Noise stress test
 *
 * A noise stress test copies a signal record into a new two-signal record in format 212: five
 * minutes clean, then two minutes with the noise records added at the wanted signal-to-noise
 * ratio, two minutes clean, and so on.  Paths are record paths with or without ".hea".  The
 * settings live as long as the process.
 * @{ */

/** Sets the signal record.
 * @param path of the record */
RAVO_API void NSTSetSignal(const char* path);

/** Adds a noise record at a signal-to-noise ratio of `snr` decibels, repeated as often as needed.
 * @param path of the record
 * @param snr decibels */
RAVO_API void NSTAddNoise(const char* path, double snr);

/** Forgets all noise records. */
RAVO_API void NSTResetNoise(void);

/** Writes the mixed record to `path`.dat and `path`.hea.
 * CAUTION: the second run of a configured test begins with the noise as the first one ended,
 * which can exchange noisy and clean segments: call NSTResetNoise and add the noises again.  A
 * noise record that is too short for 16 windows of 360 frames measures 0, and the output is a
 * constant from minute 5 on, with success as result.
 * @param path of the record to write
 * @return 0 on success, also when signal, output or noise is missing and nothing is written; -4
 *     when a record cannot be loaded; -8 when the output file cannot be created or written, and
 *     when it is a file of a record that the test reads */
RAVO_API int NSTOutput(const char* path);

/** NSTSetSignal under the name of the loader's configuration.
 * @param path of the record */
RAVO_API void WFDBNoiseTestExSetSignal(char* path);

/** NSTAddNoise under the name of the loader's configuration.
 * @param path of the record
 * @param snr decibels */
RAVO_API void WFDBNoiseTestExAddNoise(char* path, double snr);

/** NSTResetNoise under the name of the loader's configuration. */
RAVO_API void WFDBNoiseTestExResetNoise(void);

/** NSTOutput with 1 for success and 0 for failure.
 * @param path of the record to write
 * @return 1 for success, 0 for failure */
RAVO_API int WFDBNoiseTestExOutput(char* path);

/** A whole test with one noise record at `snr` decibels.  Mind the sense: 0 means that the test
 * succeeded, 1 that it failed.  Replaces the configured signal and noise.
 * @param signal path of the signal record
 * @param noise path of the noise record
 * @param output path of the record to write
 * @param snr decibels
 * @return 0 when the test succeeded, 1 when it failed */
RAVO_API int WFDBNoiseTest(char* signal, char* noise, char* output, int snr);

/** @} */
/** @name Converters
 * @{ */

/** Converts an EDF file (extension ".edf", lower case) into RECORD.hea and RECORD.dat (format 16)
 * in `directory`; RECORD is the file's name up to its last ".", at most 15 characters.  Samples
 * keep their digital values.
 * @param path the EDF file
 * @param directory where the record goes
 * @return 1 on success, else 0 */
RAVO_API int WFDBConvertEDF(const char* path, const char* directory);

/** WFDBConvertEDF under its other name.
 * @param path the EDF file
 * @param directory where the record goes
 * @return 1 on success, else 0 */
RAVO_API int edf2mit(const char* path, const char* directory);

/** Converts an AHA text file (extension ".txt") into the signal file RECORD.dat (format 212) in
 * `directory`.  No header is written.
 * CAUTION: at its end it deletes the file RECORD.dat in the *current* directory: the converted
 * file when that is the output directory, any other file of that name when it is not.
 * @param path the text file
 * @param directory where the signal file goes
 * @return always 0 */
RAVO_API int WFDBConvertAHA(const char* path, const char* directory);

/** WFDBConvertAHA under its other name.
 * @param path the text file
 * @param directory where the signal file goes
 * @return always 0 */
RAVO_API int ahaecg2mit(const char* path, const char* directory);

/** @} */
#ifdef __cplusplus
} /* extern "C" */

/** @name Overloaded, hence with C++ linkage
 * @{ */

/** The configured noise stress test.
 * @return as NSTOutput */
RAVO_API int nst();

/** One noise stress test from its arguments, `snr` in decibels, without the configuration.  Its
 * output file is opened unchecked, and where the noise record wraps inside a segment the output
 * jumps; both differ from the configured form on purpose.
 * @param signal path of the signal record
 * @param noise path of the noise record
 * @param output path of the record to write
 * @param snr decibels
 * @return as NSTOutput */
RAVO_API int nst(char* signal, char* noise, char* output, double snr);

/** Amplitudes of an open record, as WFDBSignalAmplitude measures them, into a new array that is
 * released with WFDBMemFree.
 * @param header the record's
 * @param out gets the array
 * @return the number of signals */
RAVO_API int sigamp(WFDB_HEADER* header, double** out);

/** The same of the record named by a file path.
 * @param path the header file
 * @param out gets the array
 * @return the number of signals; 0 when the record cannot be opened */
RAVO_API int sigamp(const char* path, double** out);
#endif

#endif /* RAVO_WFDB_H */
/** @} */
