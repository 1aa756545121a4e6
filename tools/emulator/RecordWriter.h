#pragma once

#include "tools/emulator/Decoder.h"
#include "tools/emulator/Firmware.h"

#include <array>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

// Writes what the outputs carry as WFDB records (format 16): eight signals in the order I, II, V1
// to V6, in units of 1/32000 of the full scale.  Every start of play makes a record of its own:
// NAME, NAME_2, NAME_3 ...
namespace emulator {

class RecordWriter final : public Sink {
  public:
    // path: directory and record name; an ending .hea is left off.  range: full scale in
    // millivolts, 0 for the one that the start command gives.  Throws std::invalid_argument for a
    // name that no header can carry.
    RecordWriter(const std::string& path, Unit unit, double range, ConverterModel model);
    ~RecordWriter() override;

    void Started(const SeenStart& start) override;
    void Arrived(const std::vector<Codes>& frames) override;
    void Stopped() override;

    // To be called after the simulator has ended.  The header files, and why one could not be
    // written (empty if all were).
    const std::vector<std::string>& Headers() const { return m_headers; }
    const std::string& Error() const { return m_error; }

  private:
    struct FileCloser {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };
    using File = std::unique_ptr<std::FILE, FileCloser>;
    using Samples = std::array<std::int16_t, kChannels>;

    std::string RecordPath() const;
    Samples Convert(const Codes& codes) const;
    void CountSamples(const Samples& samples);
    void WriteHeader();
    void NoteFailure(const std::string& path);

    const std::string m_path;
    const Unit m_unit;
    const double m_rangeOverride;
    const ConverterModel m_model;

    std::size_t m_records = 0;
    File m_data;
    SeenStart m_start;
    std::uint64_t m_frames = 0;
    Samples m_first{};
    std::array<std::uint16_t, kChannels> m_checksums{};

    std::vector<std::string> m_headers;
    std::string m_error;
};

} // namespace emulator
