/** @file
 * device.h - model and serial number as the simulator sends them.
 */
#ifndef RAVO_DEVICE_H
#define RAVO_DEVICE_H

#include "ravo/error.h"

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#pragma pack(push, 1)

/** Model and serial number as text. */
typedef struct MODEL_INFORMATION {
    char ModelName[16];    /**< "RAVO 2.0" */
    char SerialNumber[16]; /**< as printed on the simulator */
} MODEL_INFORMATION;

/** Model and serial number as the flash table holds them. */
typedef struct MODEL_INFORMATION_EX {
    char ModelCode[4];     /**< "RV" and two numbers as bytes; no terminator */
    uint32_t SerialNumber; /**< 0 to 65535 */
    uint32_t NumberC;      /**< 0 to 255; below 17 the short serial format is used */
} MODEL_INFORMATION_EX;

/** Three hardware values, 0 to 255 each, which the library carries without interpreting them. */
typedef struct HW_INFORMATION_EX {
    uint32_t Value1; /**< byte 14 of the flash table */
    uint32_t Value2; /**< byte 15 */
    uint32_t Value3; /**< byte 13 */
} HW_INFORMATION_EX;

#pragma pack(pop)

RAVO_LAYOUT(sizeof(MODEL_INFORMATION) == 32, "size of MODEL_INFORMATION");
RAVO_LAYOUT(offsetof(MODEL_INFORMATION, SerialNumber) == 16, "place of SerialNumber");
RAVO_LAYOUT(sizeof(MODEL_INFORMATION_EX) == 12, "size of MODEL_INFORMATION_EX");
RAVO_LAYOUT(offsetof(MODEL_INFORMATION_EX, SerialNumber) == 4, "place of SerialNumber");
RAVO_LAYOUT(offsetof(MODEL_INFORMATION_EX, NumberC) == 8, "place of NumberC");
RAVO_LAYOUT(sizeof(HW_INFORMATION_EX) == 12, "size of HW_INFORMATION_EX");
RAVO_LAYOUT(offsetof(HW_INFORMATION_EX, Value2) == 4, "place of Value2");
RAVO_LAYOUT(offsetof(HW_INFORMATION_EX, Value3) == 8, "place of Value3");

#endif /* RAVO_DEVICE_H */
