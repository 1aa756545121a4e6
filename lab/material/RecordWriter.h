#pragma once

#include "lab/material/readers/SourceRecord.h"
#include "lab/material/Scale.h"

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace lab {

struct WrittenSignal {
    std::string description;
    std::string unit = "mV";
    int64_t perFrame = 1;
    Scale scale;
};

// Writes a WFDB record of format 16, DIRECTORY/NAME.dat and then NAME.hea. Fails, status 6, with
// the system's reason when a file cannot be written.
class RecordWriter {
  public:
    RecordWriter(const std::string& directory, const std::string& name, const Rate& frameRate,
                 const std::vector<WrittenSignal>& signals);

    // Writes the next samples of each signal; the rows may differ in length. NaN is a missing
    // sample.
    void Write(const Samples& rows);

    // Ends the signal file, pads the shorter signals with missing samples, and writes the header.
    // `start` is the time and date that its first line ends with, or empty.
    void Finish(const std::string& start);

    const std::string& HeaderPath() const { return m_header; }
    const std::string& SignalPath() const { return m_data; }

  private:
    struct CloseFile {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };

    struct Row {
        std::vector<double> waiting;
        std::size_t taken = 0;
        int32_t first = 0;
        uint32_t sum = 0;
        bool hasFirst = false;

        std::size_t Waiting() const { return waiting.size() - taken; }
    };

    int16_t Encode(std::size_t signal, double value);
    void WriteFrames(std::size_t frames);
    std::string HeaderText(const std::string& start) const;
    [[noreturn]] void FailWriting(const std::string& path) const;

    std::string m_name;
    std::string m_header;
    std::string m_data;
    Rate m_rate;
    std::vector<WrittenSignal> m_signals;
    std::vector<Row> m_rows;
    std::unique_ptr<std::FILE, CloseFile> m_file;
    std::vector<int16_t> m_encoded;
    int64_t m_frames = 0;
};

// The shortest text that parses to the same number.
std::string ShortestNumber(double number);

} // namespace lab
