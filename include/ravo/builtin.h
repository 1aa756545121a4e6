/** @file
 * builtin.h - the records and noises of the compiled-in CTS/CSE test database.
 */
#ifndef RAVO_BUILTIN_H
#define RAVO_BUILTIN_H

#include "ravo/material.h"

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

/* clang-format off */

/** The 119 records: analytical (ANE), calibration (CAL; the first two digits tell the peak in
 * tenths of a millivolt, CAL10000 swings between -1 and +1 mV) and multilead (PCTH; record names MA1_001 to
 * MA1_125). */
typedef enum CTSCSE_Database RAVO_ENUM_BASE {
    CTSCSE_ANE20000 = 0, CTSCSE_ANE20001, CTSCSE_ANE20002, CTSCSE_CAL05000, CTSCSE_CAL10000,
    CTSCSE_CAL15000, CTSCSE_CAL20000, CTSCSE_CAL20002, CTSCSE_CAL20100, CTSCSE_CAL20110,
    CTSCSE_CAL20160, CTSCSE_CAL20200, CTSCSE_CAL20210, CTSCSE_CAL20260, CTSCSE_CAL20500,
    CTSCSE_CAL20502, CTSCSE_CAL30000, CTSCSE_CAL40000, CTSCSE_CAL50000, CTSCSE_PCTH001,
    CTSCSE_PCTH002, CTSCSE_PCTH003, CTSCSE_PCTH004, CTSCSE_PCTH005, CTSCSE_PCTH007, CTSCSE_PCTH008,
    CTSCSE_PCTH009, CTSCSE_PCTH011, CTSCSE_PCTH012, CTSCSE_PCTH013, CTSCSE_PCTH014, CTSCSE_PCTH015,
    CTSCSE_PCTH016, CTSCSE_PCTH017, CTSCSE_PCTH019, CTSCSE_PCTH021, CTSCSE_PCTH022, CTSCSE_PCTH024,
    CTSCSE_PCTH025, CTSCSE_PCTH026, CTSCSE_PCTH027, CTSCSE_PCTH028, CTSCSE_PCTH029, CTSCSE_PCTH030,
    CTSCSE_PCTH031, CTSCSE_PCTH032, CTSCSE_PCTH033, CTSCSE_PCTH034, CTSCSE_PCTH035, CTSCSE_PCTH036,
    CTSCSE_PCTH037, CTSCSE_PCTH038, CTSCSE_PCTH039, CTSCSE_PCTH040, CTSCSE_PCTH041, CTSCSE_PCTH042,
    CTSCSE_PCTH043, CTSCSE_PCTH044, CTSCSE_PCTH046, CTSCSE_PCTH047, CTSCSE_PCTH048, CTSCSE_PCTH049,
    CTSCSE_PCTH051, CTSCSE_PCTH053, CTSCSE_PCTH055, CTSCSE_PCTH058, CTSCSE_PCTH059, CTSCSE_PCTH060,
    CTSCSE_PCTH061, CTSCSE_PCTH062, CTSCSE_PCTH063, CTSCSE_PCTH064, CTSCSE_PCTH065, CTSCSE_PCTH066,
    CTSCSE_PCTH068, CTSCSE_PCTH069, CTSCSE_PCTH071, CTSCSE_PCTH072, CTSCSE_PCTH073, CTSCSE_PCTH074,
    CTSCSE_PCTH075, CTSCSE_PCTH076, CTSCSE_PCTH077, CTSCSE_PCTH078, CTSCSE_PCTH079, CTSCSE_PCTH080,
    CTSCSE_PCTH081, CTSCSE_PCTH082, CTSCSE_PCTH083, CTSCSE_PCTH084, CTSCSE_PCTH085, CTSCSE_PCTH086,
    CTSCSE_PCTH087, CTSCSE_PCTH088, CTSCSE_PCTH090, CTSCSE_PCTH091, CTSCSE_PCTH095, CTSCSE_PCTH096,
    CTSCSE_PCTH097, CTSCSE_PCTH098, CTSCSE_PCTH099, CTSCSE_PCTH101, CTSCSE_PCTH102, CTSCSE_PCTH103,
    CTSCSE_PCTH104, CTSCSE_PCTH105, CTSCSE_PCTH106, CTSCSE_PCTH107, CTSCSE_PCTH108, CTSCSE_PCTH110,
    CTSCSE_PCTH112, CTSCSE_PCTH113, CTSCSE_PCTH114, CTSCSE_PCTH115, CTSCSE_PCTH116, CTSCSE_PCTH118,
    CTSCSE_PCTH123, CTSCSE_PCTH124, CTSCSE_PCTH125
} CTSCSE_Database;

/** The noises, ten seconds each; CTSCSE_NOISE_NONE plays the record alone. */
typedef enum CTSCSE_Noise RAVO_ENUM_BASE {
    CTSCSE_NOISE_50HZ = 0, /**< mains, sine of 25 uV amplitude */
    CTSCSE_NOISE_60HZ,
    CTSCSE_NOISE_BL, /**< baseline wander, 0.3 Hz, 0.5 mV amplitude */
    CTSCSE_NOISE_BL_HF, /**< the same with high-frequency noise of 15 uV r.m.s. */
    CTSCSE_NOISE_HF_05, /**< high-frequency noise of 5 uV r.m.s., and so on */
    CTSCSE_NOISE_HF_10,
    CTSCSE_NOISE_HF_15,
    CTSCSE_NOISE_HF_20,
    CTSCSE_NOISE_HF_25,
    CTSCSE_NOISE_HF_30,
    CTSCSE_NOISE_HF_35,
    CTSCSE_NOISE_HF_40,
    CTSCSE_NOISE_HF_45,
    CTSCSE_NOISE_HF_50,
    CTSCSE_NOISE_NONE
} CTSCSE_Noise;

/* clang-format on */

/** One record of the database. */
typedef struct RAVO_BUILTIN_RECORD {
    char Name[16];              /**< "ANE20000" */
    uint32_t SamplesPerPeriod;  /**< samples per lead of one period */
    uint32_t NumberOfSamples;   /**< samples per lead when loaded: ten periods */
    uint32_t SamplingFrequency; /**< samples per second */
    uint32_t Licensed;          /**< 1: the owner's licensed data; 0: a generated stand-in */
} RAVO_BUILTIN_RECORD;

/** One noise of the database. */
typedef struct RAVO_BUILTIN_NOISE {
    char Name[16];     /**< "50HZ" */
    uint32_t Licensed; /**< as above */
} RAVO_BUILTIN_NOISE;

static_assert(sizeof(CTSCSE_Database) == 4, "32 bits");
static_assert(sizeof(CTSCSE_Noise) == 4, "32 bits");
static_assert(sizeof(RAVO_BUILTIN_RECORD) == 32, "size of RAVO_BUILTIN_RECORD");
static_assert(offsetof(RAVO_BUILTIN_RECORD, SamplesPerPeriod) == 16, "place of SamplesPerPeriod");
static_assert(offsetof(RAVO_BUILTIN_RECORD, NumberOfSamples) == 20, "place of NumberOfSamples");
static_assert(offsetof(RAVO_BUILTIN_RECORD, SamplingFrequency) == 24, "place of SamplingFrequency");
static_assert(offsetof(RAVO_BUILTIN_RECORD, Licensed) == 28, "place of Licensed");
static_assert(sizeof(RAVO_BUILTIN_NOISE) == 20, "size of RAVO_BUILTIN_NOISE");
static_assert(offsetof(RAVO_BUILTIN_NOISE, Licensed) == 16, "place of Licensed");

#endif /* RAVO_BUILTIN_H */
