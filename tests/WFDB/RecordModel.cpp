#include "tests/WFDB/RecordModel.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>
#include <limits>
#include <numeric>
#include <sstream>

namespace model {

namespace {

std::vector<uint8_t> ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

Signal ParseSignal(const std::string& line, std::string& fileName) {
    std::istringstream fields(line);
    Signal signal;
    std::string format;
    std::string gain;
    fields >> fileName >> format >> gain >> signal.resolution >> signal.zero;
    signal.format = std::stoi(format);
    if (const size_t x = format.find('x'); x != std::string::npos) {
        signal.samplesPerFrame = std::stoi(format.substr(x + 1));
    }
    signal.gain = std::stod(gain);
    const size_t parenthesis = gain.find('(');
    signal.baseline =
        parenthesis == std::string::npos ? signal.zero : std::stoi(gain.substr(parenthesis + 1));
    std::string initial, checksum, block;
    fields >> initial >> checksum >> block;
    std::getline(fields >> std::ws, signal.description);
    return signal;
}

std::vector<Beat> ParseAnnotations(const std::vector<uint8_t>& bytes) {
    std::vector<Beat> beats;
    uint32_t time = 0;
    size_t at = 0;
    while (at + 1 < bytes.size()) {
        const unsigned word = bytes[at] + 256U * bytes[at + 1];
        at += 2;
        const unsigned code = word / 1024;
        if (word == 0) {
            break;
        }
        if (code == 59) {
            const uint32_t upper = bytes.at(at) + 256U * bytes.at(at + 1);
            const uint32_t lower = bytes.at(at + 2) + 256U * bytes.at(at + 3);
            time += upper * 65536U + lower;
            at += 4;
        } else if (code == 63) {
            const unsigned length = word % 256;
            at += length + length % 2;
        } else if (code < 59) {
            time += word % 1024;
            beats.push_back({time, static_cast<int>(code)});
        }
    }
    return beats;
}

bool IsBeat(int type) {
    const int beats[] = {1, 2, 3, 4, 7, 8, 9, 11, 12, 13, 25, 34, 35, 38};
    return std::find(std::begin(beats), std::end(beats), type) != std::end(beats);
}

double Trim(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const auto cut = static_cast<std::ptrdiff_t>(values.size() / 20);
    const double sum = std::accumulate(values.begin() + cut, values.end() - cut, 0.0);
    const double mean =
        sum / static_cast<double>(static_cast<std::ptrdiff_t>(values.size()) - 2 * cut);
    return std::min(std::floor(mean * 100000.0), 2147483647.0) / 100000.0;
}

int Saturate(double value) {
    if (std::isnan(value)) {
        return 0;
    }
    const double highest = std::numeric_limits<int>::max();
    const double lowest = std::numeric_limits<int>::min();
    return static_cast<int>(std::trunc(std::max(lowest, std::min(highest, value))));
}

} // namespace

Record::Record(const std::string& directory, const std::string& name, bool withAnnotations) {
    std::ifstream header(directory + "/" + name + ".hea");
    std::string line;
    std::getline(header, line);
    std::istringstream fields(line);
    std::string recordName;
    size_t signals = 0;
    fields >> recordName >> signals >> m_frequency >> m_frames;
    std::string firstFile;
    while (m_signals.size() < signals && std::getline(header, line)) {
        std::string fileName;
        m_signals.push_back(ParseSignal(line, fileName));
        if (firstFile.empty()) {
            firstFile = fileName;
        }
    }
    m_bytes = ReadFile(directory + "/" + firstFile);
    const std::vector<uint8_t> annotations = ReadFile(directory + "/" + recordName + ".atr");
    if (withAnnotations && !annotations.empty()) {
        m_beats = ParseAnnotations(annotations);
    }
}

// The stored code: signed for format 212, unsigned for format 16.
std::optional<int> Record::NextSample() {
    const size_t k = m_samplesTaken;
    if (m_signals[0].format == 16) {
        const size_t at = m_origin + 2 * k;
        if (at + 2 > m_bytes.size()) {
            return std::nullopt;
        }
        ++m_samplesTaken;
        return m_bytes[at] + 256 * m_bytes[at + 1];
    }
    const size_t at = m_origin + k / 2 * 3;
    if (at + 3 > m_bytes.size()) {
        return std::nullopt;
    }
    ++m_samplesTaken;
    const int middle = m_bytes[at + 1];
    const int code =
        k % 2 == 0 ? m_bytes[at] + middle % 16 * 256 : m_bytes[at + 2] + middle / 16 * 256;
    return code >= 2048 ? code - 4096 : code;
}

std::optional<std::vector<int>> Record::NextRaw() {
    std::vector<int> frame;
    for (const Signal& signal : m_signals) {
        int sum = 0;
        for (int i = 0; i < signal.samplesPerFrame; ++i) {
            const std::optional<int> sample = NextSample();
            if (!sample) {
                return std::nullopt;
            }
            sum += *sample;
        }
        frame.push_back(sum / signal.samplesPerFrame);
    }
    return frame;
}

std::optional<std::vector<double>> Record::NextPhysical() {
    std::vector<double> frame;
    for (const Signal& signal : m_signals) {
        double sum = 0;
        for (int i = 0; i < signal.samplesPerFrame; ++i) {
            const std::optional<int> sample = NextSample();
            if (!sample) {
                return std::nullopt;
            }
            const int code = signal.format == 16 && *sample > 32767 ? *sample - 65536 : *sample;
            sum += (static_cast<double>(code) - signal.baseline) / signal.gain;
        }
        frame.push_back(sum / signal.samplesPerFrame);
    }
    return frame;
}

bool Record::SeekFrame(long frame) {
    if (frame > m_frames) {
        frame = 0;
    }
    if (frame < 0) {
        return false;
    }
    long samples = 0;
    for (const Signal& signal : m_signals) {
        samples += frame * (signal.format == 16 ? signal.samplesPerFrame : 1);
    }
    const long bytes = m_signals[0].format == 16 ? samples * 2 : samples * 3 / 2;
    m_origin = static_cast<size_t>(bytes);
    m_samplesTaken = 0;
    return true;
}

void Record::Rewind() {
    m_origin = 0;
    m_samplesTaken = 0;
}

std::vector<std::vector<double>> Record::MeasureBeats(int runs) {
    std::vector<std::vector<double>> measured;
    const long before = static_cast<long>(std::floor(static_cast<double>(m_frequency) * 0.05));
    for (const Beat& beat : *m_beats) {
        if (measured.size() == static_cast<size_t>(runs)) {
            break;
        }
        if (!IsBeat(beat.type)) {
            continue;
        }
        if (!SeekFrame(static_cast<long>(beat.time) - before)) {
            break;
        }
        std::vector<std::vector<int>> frames;
        while (frames.size() < static_cast<size_t>(2 * before + 1)) {
            const std::optional<std::vector<int>> frame = NextRaw();
            if (!frame) {
                break;
            }
            frames.push_back(*frame);
        }
        if (frames.empty()) {
            break;
        }
        std::vector<double> peakToPeak;
        for (size_t i = 0; i < m_signals.size(); ++i) {
            const auto less = [i](const auto& a, const auto& b) { return a[i] < b[i]; };
            const auto ends = std::minmax_element(frames.begin(), frames.end(), less);
            peakToPeak.push_back((*ends.second)[i] - (*ends.first)[i]);
        }
        measured.push_back(peakToPeak);
    }
    return measured;
}

std::vector<std::vector<double>> Record::MeasureWindows(int runs, int window) {
    std::vector<std::vector<double>> measured;
    const size_t n = m_signals.size();
    const auto readWindow = [&] {
        std::vector<std::vector<int>> frames;
        while (frames.size() < static_cast<size_t>(window)) {
            const std::optional<std::vector<int>> frame = NextRaw();
            if (!frame) {
                break;
            }
            frames.push_back(*frame);
        }
        return frames;
    };
    for (int k = 0; k < runs; ++k) {
        const std::vector<std::vector<int>> forMean = readWindow();
        if (forMean.size() < static_cast<size_t>(window) || !SeekFrame(long{k} * window)) {
            break;
        }
        const std::vector<std::vector<int>> forSquares = readWindow();
        if (forSquares.empty()) {
            break;
        }
        std::vector<double> rms;
        for (size_t i = 0; i < n; ++i) {
            double sum = 0;
            for (const std::vector<int>& frame : forMean) {
                sum += frame[i];
            }
            const double mean = sum / window + forSquares[0][i] - forMean[0][i];
            double squares = 0;
            for (const std::vector<int>& frame : forSquares) {
                squares += std::pow(std::trunc(frame[i] - mean), 2);
            }
            rms.push_back(std::sqrt(squares / window));
        }
        measured.push_back(rms);
    }
    return measured;
}

std::vector<double> Record::Amplitude(int runs, int window) {
    const std::vector<std::vector<double>> measured =
        m_beats ? MeasureBeats(runs) : MeasureWindows(runs, window);
    std::vector<double> amplitudes;
    for (size_t i = 0; i < m_signals.size(); ++i) {
        std::vector<double> values;
        for (const std::vector<double>& measurement : measured) {
            values.push_back(measurement[i]);
        }
        values.resize(static_cast<size_t>(runs));
        amplitudes.push_back(Trim(values));
    }
    return amplitudes;
}

namespace {

// ADC units, through the physical unit and back.
std::optional<std::vector<double>> NextInADCUnits(Record& record) {
    std::optional<std::vector<double>> frame = record.NextPhysical();
    for (size_t i = 0; frame && i < frame->size(); ++i) {
        (*frame)[i] = (*frame)[i] * record.Signals()[i].gain + record.Signals()[i].baseline;
    }
    return frame;
}

class Mixer {
  public:
    Mixer(Record& signal, std::vector<Noise>& noises, Form form, int runs, int window)
        : m_signal(signal), m_noises(noises), m_form(form), m_runs(runs), m_window(window),
          m_count(signal.Signals().size()), m_last(m_count), m_out(m_count), m_offset(m_count) {}

    std::vector<uint8_t> Run() {
        for (Noise& noise : m_noises) {
            Prepare(noise);
        }
        const long second = m_signal.Frequency();
        WriteFrames(300 * second);
        do {
            Switch();
        } while (second > 0 && WriteFrames(120 * second));
        return m_bytes;
    }

  private:
    void Prepare(Noise& noise) {
        m_signal.Rewind();
        noise.record.Rewind();
        const std::vector<double> a = m_signal.Amplitude(m_runs, m_window);
        const std::vector<double> n = noise.record.Amplitude(m_runs, m_window);
        noise.ratio.clear();
        for (size_t i = 0; i < m_count; ++i) {
            const double level = std::pow(10.0, -noise.snr / 20.0) * 1.4142135623730951 / 4.0;
            noise.ratio.push_back(a[i] * level / n[i % n.size()]);
        }
        noise.factor.resize(m_count);
        noise.frame.resize(n.size());
        if (m_form == Form::kList) {
            m_signal.Rewind();
            noise.record.Rewind();
        }
    }

    double NoiseFor(size_t i) const {
        double sum = 0;
        for (const Noise& noise : m_noises) {
            sum += noise.factor[i] * noise.frame[i % noise.frame.size()];
        }
        return sum;
    }

    void Switch() {
        for (size_t i = 0; i < m_count; ++i) {
            for (Noise& noise : m_noises) {
                noise.factor[i] = noise.ratio[i] - noise.factor[i];
            }
            m_offset[i] = Saturate(m_last[i] + NoiseFor(i) - m_out[i]);
        }
    }

    bool WriteFrames(long frames) {
        for (long k = 0; k < frames; ++k) {
            const std::optional<std::vector<double>> raw = NextInADCUnits(m_signal);
            if (!raw || !NextNoise(*raw)) {
                return false;
            }
            for (size_t i = 0; i < m_count; ++i) {
                m_last[i] = (*raw)[i] - m_signal.Signals()[i].baseline;
                m_out[i] = Saturate(m_last[i] + NoiseFor(i) - m_offset[i]);
            }
            Pack(m_out[0], m_count > 1 ? m_out[1] : 0);
        }
        return true;
    }

    bool NextNoise(const std::vector<double>& raw) {
        for (Noise& noise : m_noises) {
            std::optional<std::vector<double>> frame = NextInADCUnits(noise.record);
            const bool wrapped = !frame;
            if (wrapped) {
                noise.record.Rewind();
                frame = NextInADCUnits(noise.record);
            }
            if (!frame) {
                return false;
            }
            noise.frame = *frame;
            for (size_t i = 0; wrapped && m_form == Form::kSingle && i < m_count; ++i) {
                m_offset[i] = Saturate(raw[i] + NoiseFor(i) - m_out[i]);
            }
        }
        return true;
    }

    void Pack(int first, int second) {
        const int a = ((first % 4096) + 4096) % 4096;
        const int b = ((second % 4096) + 4096) % 4096;
        m_bytes.push_back(static_cast<uint8_t>(a % 256));
        m_bytes.push_back(static_cast<uint8_t>(a / 256 + b / 256 * 16));
        m_bytes.push_back(static_cast<uint8_t>(b % 256));
    }

    Record& m_signal;
    std::vector<Noise>& m_noises;
    Form m_form;
    int m_runs;
    int m_window;
    size_t m_count;
    std::vector<double> m_last;
    std::vector<int> m_out;
    std::vector<int> m_offset;
    std::vector<uint8_t> m_bytes;
};

} // namespace

std::vector<uint8_t> MixNoise(Record& signal, std::vector<Noise>& noises, Form form, int runs,
                              int window) {
    return Mixer(signal, noises, form, runs, window).Run();
}

} // namespace model
