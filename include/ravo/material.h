/** @file
 * material.h - the loaded ECG material as the host sees it: leads, record header, shapes.
 */
#ifndef RAVO_MATERIAL_H
#define RAVO_MATERIAL_H

#include "ravo/error.h"
#include "ravo/wfdb.h"

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

/** In C++ the enumerations are 32-bit integers that may hold any value: a host can hand in what it
 * likes, and the library checks. */
#ifdef __cplusplus
#define RAVO_ENUM_BASE : int32_t
#else
#define RAVO_ENUM_BASE
#endif

/** The simulator's eight outputs. */
typedef enum ECG_Lead RAVO_ENUM_BASE {
    ECG_LEAD_I = 0,
    ECG_LEAD_II = 1,
    ECG_LEAD_V1 = 2,
    ECG_LEAD_V2 = 3,
    ECG_LEAD_V3 = 4,
    ECG_LEAD_V4 = 5,
    ECG_LEAD_V5 = 6,
    ECG_LEAD_V6 = 7,
    ECG_LEAD_NONE = 8
} ECG_Lead;

/** Shapes of RAVOLoadWaveform and RAVOLoadWaveformEx. */
typedef enum WAVEFORM_TYPE RAVO_ENUM_BASE {
    WAVEFORM_SINE = 0,
    WAVEFORM_TRIANGLE = 1,
    WAVEFORM_SQUARE = 2
} WAVEFORM_TYPE;

/** Kinds of material: values of g_WaveformType. */
typedef enum WaveformType RAVO_ENUM_BASE {
    MATERIAL_NONE = 0,
    MATERIAL_DIRECT = 1,         /**< eight signals played as they are; may carry noise */
    MATERIAL_AHA = 2,            /**< two signals, no chest leads */
    MATERIAL_MIT = 3,            /**< record played through the lead mapping */
    MATERIAL_TARNWICK = 4,       /**< native text, resampled to 1000 frames per second */
    MATERIAL_TABLE = 5,          /**< tabulated test signal */
    MATERIAL_EDF_FOUR_CHEST = 6, /**< EDF through the lead mapping, V1 to V4 only */
    MATERIAL_EDF = 7,            /**< EDF through the lead mapping */
    MATERIAL_SINE = 129,
    MATERIAL_TRIANGLE = 130,
    MATERIAL_RECTANGLE_PULSE = 131,
    MATERIAL_SQUARE = 132,
    MATERIAL_TRIANGLE_PULSE = 133
} WaveformType;

#pragma pack(push, 1)

/** One signal of the loaded material and the output lead that it feeds. */
typedef struct ECG_SIGNAL {
    char Description[16]; /**< at most 15 characters, terminated */
    ECG_Lead Lead;        /**< ECG_LEAD_NONE when the description names no lead */
} ECG_SIGNAL;

/** The loaded material.  Signal extends to NumberOfSignals entries. */
typedef struct ECG_HEADER {
    char RecordName[16];       /**< at most 15 characters, terminated */
    int64_t NumberOfSignals;   /**< entries in Signal */
    int64_t SamplingFrequency; /**< samples per second */
    int64_t NumberOfSamples;   /**< samples per signal */
    WFDB_HEADER* WFDBHeader;   /**< the record that the material comes from, or null */
    uint8_t Reserved[8];       /**< zero */
    ECG_SIGNAL Signal[1];      /**< the first of NumberOfSignals */
} ECG_HEADER;

#pragma pack(pop)

RAVO_LAYOUT(sizeof(ECG_Lead) == 4, "32 bits");
RAVO_LAYOUT(sizeof(WAVEFORM_TYPE) == 4, "32 bits");
RAVO_LAYOUT(sizeof(WaveformType) == 4, "32 bits");
RAVO_LAYOUT(sizeof(ECG_SIGNAL) == 20, "size of ECG_SIGNAL");
RAVO_LAYOUT(offsetof(ECG_SIGNAL, Lead) == 16, "place of Lead");
RAVO_LAYOUT(sizeof(ECG_HEADER) == 76, "size of ECG_HEADER");
RAVO_LAYOUT(offsetof(ECG_HEADER, NumberOfSignals) == 16, "place of NumberOfSignals");
RAVO_LAYOUT(offsetof(ECG_HEADER, SamplingFrequency) == 24, "place of SamplingFrequency");
RAVO_LAYOUT(offsetof(ECG_HEADER, NumberOfSamples) == 32, "place of NumberOfSamples");
RAVO_LAYOUT(offsetof(ECG_HEADER, WFDBHeader) == 40, "place of WFDBHeader");
RAVO_LAYOUT(offsetof(ECG_HEADER, Reserved) == 48, "place of Reserved");
RAVO_LAYOUT(offsetof(ECG_HEADER, Signal) == 56, "place of Signal");

#ifdef __cplusplus
extern "C" {
#endif

/** The kind of loaded material, a WaveformType.  A host sets it after loading an EDF record's
 * samples, and never while output runs. */
RAVO_API extern int32_t g_WaveformType;

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* RAVO_MATERIAL_H */
