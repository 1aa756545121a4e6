#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// An independent model of records, amplitudes and the noise stress test: its own header parser,
// sample decoder and arithmetic, working on whole files in memory and sharing nothing with the
// library.
namespace model {

struct Signal {
    int format = 0;
    int samplesPerFrame = 1;
    double gain = 200;
    int baseline = 0;
    int resolution = 0;
    int zero = 0;
    std::string description;
};

struct Beat {
    uint32_t time;
    int type;
};

// An open record: its files' content and a position in the samples, which are counted from the byte
// to which the last seek moved.
class Record {
  public:
    // Opens directory/name.hea, the signal file of its first line, and, when asked to,
    // directory/name.atr if it exists.
    Record(const std::string& directory, const std::string& name, bool withAnnotations);

    const std::vector<Signal>& Signals() const { return m_signals; }
    long Frequency() const { return m_frequency; }

    std::optional<std::vector<double>> NextPhysical();
    std::optional<std::vector<int>> NextRaw();
    bool SeekFrame(long frame);
    void Rewind();

    // One amplitude per signal.
    std::vector<double> Amplitude(int runs = 300, int window = 360);

  private:
    std::optional<int> NextSample();
    std::vector<std::vector<double>> MeasureBeats(int runs);
    std::vector<std::vector<double>> MeasureWindows(int runs, int window);

    std::vector<Signal> m_signals;
    std::vector<uint8_t> m_bytes;
    std::optional<std::vector<Beat>> m_beats;
    long m_frequency = 0;
    long m_frames = 0;
    size_t m_origin = 0;
    size_t m_samplesTaken = 0;
};

struct Noise {
    Noise(Record opened, double decibels) : record(std::move(opened)), snr(decibels) {}

    Record record;
    double snr;
    // The state that an earlier run left; empty for the first run.
    std::vector<double> factor;
    std::vector<double> ratio;
    std::vector<double> frame;
};

enum class Form { kList, kSingle };

// The signal file that a noise stress test writes.  The noises' factors are left as the run leaves
// them.
std::vector<uint8_t> MixNoise(Record& signal, std::vector<Noise>& noises, Form form, int runs = 300,
                              int window = 360);

} // namespace model
