#pragma once

#include "lab/material/readers/Files.h"
#include "lab/material/readers/Numbers.h"

#include <cstdint>
#include <string>
#include <vector>

// The header of an EDF, EDF+ or BDF file (Kemp et al. 1992, Kemp and Olivan 2003; BDF, the 24-bit
// variant, by its maker's description).
namespace lab {

struct EdfSignal {
    std::string label;
    std::string unit;
    double physicalMinimum = 0.0;
    double physicalMaximum = 0.0;
    double digitalMinimum = 0.0;
    double digitalMaximum = 0.0;
    int64_t perRecord = 0; // number of samples in one data record
    int64_t offset = 0;    // offset in bytes from the beginning of a data record
    bool isAnnotation = false;

    // value = (digital - Baseline) / Gain, in the signal's own unit.
    double Gain() const {
        return (digitalMaximum - digitalMinimum) / (physicalMaximum - physicalMinimum);
    }
    double Baseline() const { return digitalMinimum - physicalMinimum * Gain(); }
};

struct EdfHeader {
    int64_t bytesPerSample = 2; // 3 in BDF
    int64_t headerBytes = 0;
    int64_t recordBytes = 0;
    int64_t records = 0;           // data records that the file holds completely
    int64_t announcedRecords = 0;  // -1: not stated
    bool endsWithinRecord = false; // only when no number is announced
    Rate duration;                 // seconds per data record; may be 0 when all are annotations
    bool isDiscontinuous = false;
    std::string date; // dd.mm.yy
    std::string time; // hh.mm.ss
    std::vector<EdfSignal> signals;
};

// Fails with a sentence that names the file and, where there is one, the signal.
EdfHeader ParseEdfHeader(const ByteFile& file);

} // namespace lab
