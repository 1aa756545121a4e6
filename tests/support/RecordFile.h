#pragma once

#include <cstdint>
#include <string>
#include <vector>

// A small reader of WFDB records in format 16 that is independent of the driver library: an
// independent check of the records that are written.
struct RecordFile {
    struct Signal {
        std::string file;
        int format = 0;
        double gain = 0.0;
        int baseline = 0;
        std::string unit;
        int firstValue = 0;
        int checksum = 0;
        std::string description;
        std::vector<std::int16_t> samples;
    };
    std::string name;
    double rate = 0.0;
    unsigned long long frames = 0;
    std::vector<Signal> signals;
    std::string comments;
};

// path: the header file.  Throws std::runtime_error when the files are not such a record.
RecordFile ReadRecordFile(const std::string& path);
