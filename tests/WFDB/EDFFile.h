#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Writes EDF files for the tests, field by field from the published layout of the format.

struct EDFSignal {
    std::string Label = "ECG I";
    std::string Dimension = "mV";
    std::string PhysicalMinimum = "-5.0";
    std::string PhysicalMaximum = "5.0";
    std::string DigitalMinimum = "-2048";
    std::string DigitalMaximum = "2047";
    std::string SamplesPerRecord = "4";
};

struct EDFFile {
    std::string Version = "0";
    std::string DataRecords = "1";
    std::string Duration = "1";
    std::string SignalCount; // the number of Signals when empty
    std::vector<EDFSignal> Signals;
    std::vector<int> Samples; // as they follow each other in the file

    std::string Encode() const { return FixedHeader() + SignalHeaders() + EncodeSamples(); }

    static std::string Padded(const std::string& text, size_t width) {
        return (text + std::string(width, ' ')).substr(0, width);
    }

  private:
    std::string FixedHeader() const {
        const std::string count =
            SignalCount.empty() ? std::to_string(Signals.size()) : SignalCount;
        return Padded(Version, 8) + Padded("X X X X", 80) + Padded("Startdate X X X X", 80) +
               Padded("01.02.03", 8) + Padded("04.05.06", 8) +
               Padded(std::to_string(256 * (Signals.size() + 1)), 8) + Padded("", 44) +
               Padded(DataRecords, 8) + Padded(Duration, 8) + Padded(count, 4);
    }

    std::string SignalHeaders() const {
        return Column(&EDFSignal::Label, 16) + Blank(80) + Column(&EDFSignal::Dimension, 8) +
               Column(&EDFSignal::PhysicalMinimum, 8) + Column(&EDFSignal::PhysicalMaximum, 8) +
               Column(&EDFSignal::DigitalMinimum, 8) + Column(&EDFSignal::DigitalMaximum, 8) +
               Blank(80) + Column(&EDFSignal::SamplesPerRecord, 8) + Blank(32);
    }

    std::string Column(std::string EDFSignal::*field, size_t width) const {
        std::string column;
        for (const EDFSignal& signal : Signals) {
            column += Padded(signal.*field, width);
        }
        return column;
    }

    std::string Blank(size_t width) const { return std::string(Signals.size() * width, ' '); }

    std::string EncodeSamples() const {
        std::string bytes;
        for (const int sample : Samples) {
            const int code = (sample + 65536) % 65536;
            bytes += static_cast<char>(code % 256);
            bytes += static_cast<char>(code / 256);
        }
        return bytes;
    }
};
