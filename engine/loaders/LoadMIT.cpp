#include "engine/loaders/LoadMIT.h"

#include "engine/LeadMapping.h"
#include "engine/MaterialLoad.h"
#include "engine/Record.h"
#include "platform/LastError.h"
#include "platform/Text.h"
#include "ravo/wfdb.h"
#include "WFDB/Ownership.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>
#include <numeric>
#include <optional>
#include <string>
#include <vector>

namespace {

constexpr int64_t kShorteningSeconds = 5;
constexpr int64_t kBaselineSeconds = 60;
constexpr double kLargestBaseline = 5.0;
constexpr double kMicrovoltsPerMillivolt = 1000.0;

// Values read from the signal file at a time: enough to make the call cheap, few enough to stay in
// the processor's cache until they are sorted into channels.
constexpr int64_t kValuesPerRead = 4096;

// Releases the block but leaves the WFDB_HEADER to its owner.
struct ECGHeaderReleaser {
    void operator()(ECG_HEADER* header) const {
        header->WFDBHeader = nullptr;
        FreeECGHeader(header);
    }
};

using ECGHeader = std::unique_ptr<ECG_HEADER, ECGHeaderReleaser>;

// The path up to and including its last "/"; empty for a file in the current directory.
std::string GetDirectory(const std::string& path) {
    return path.substr(0, path.rfind('/') + 1);
}

OwnedRecord OpenRecord(const char* path) {
    OwnedRecord record(WFDBReadHeader(const_cast<char*>(path)));
    if (record == nullptr || WFDBLoadSignal(GetDirectory(path).c_str(), record.get()) == 0) {
        return nullptr;
    }
    return record;
}

// The divisor that turns the announced samples into frames: the largest number of samples per
// frame.
int32_t GetFrameDivisor(const WFDB_HEADER* record) {
    int32_t divisor = 1;
    for (int64_t i = 0; i < record->NumberOfSignals; ++i) {
        divisor = std::max<int32_t>(divisor, record->Signal[i].SamplesPerFrame);
    }
    return divisor;
}

// The engine's header of a record; null when memory is refused.
ECGHeader DescribeRecord(WFDB_HEADER* record) {
    ECGHeader header(NewECGHeader(record->NumberOfSignals));
    if (header == nullptr) {
        return nullptr;
    }
    CopyText(header->RecordName, record->RecordName);
    header->NumberOfSignals = record->NumberOfSignals;
    header->SamplingFrequency = record->SamplingFrequency;
    header->NumberOfSamples = record->NumberOfSamplesPerSignal / GetFrameDivisor(record);
    header->WFDBHeader = record;
    for (int64_t i = 0; i < record->NumberOfSignals; ++i) {
        CopyText(header->Signal[i].Description, record->Signal[i].Description);
        header->Signal[i].Lead = MappingLeadText(header->Signal[i].Description);
    }
    return header;
}

bool AllocateSamples(const ECG_HEADER* header, int64_t sampleCount) {
    g_nSampleCount = static_cast<uint64_t>(sampleCount);
    return ReallocateECGDataBuffer(static_cast<int>(header->NumberOfSignals)) == 1;
}

// The smallest number above `tooFew` that `fits` accepts, given that it refuses `tooFew` and
// accepts every number from some point on; none when it refuses `most`, too.  Needs few attempts
// however far that point is: the distance doubles until a number fits, then the gap is halved.
template <class Predicate>
std::optional<int64_t> FindFewest(int64_t tooFew, int64_t most, const Predicate& fits) {
    const int64_t start = tooFew;
    int64_t enough = std::min(start + 1, most);
    while (!fits(enough)) {
        if (enough == most) {
            return std::nullopt;
        }
        tooFew = enough;
        enough = std::min(enough + (enough - start), most);
    }
    while (enough - tooFew > 1) {
        const int64_t middle = tooFew + (enough - tooFew) / 2;
        (fits(middle) ? enough : tooFew) = middle;
    }
    return enough;
}

// Allocates as many of the `announced` samples as memory can hold, reduced in whole steps of five
// seconds, and stores their number in the header.  False when memory holds none.
bool AllocateShortenedSamples(ECG_HEADER* header, int64_t announced) {
    header->NumberOfSamples = announced;
    if (announced < 0) {
        SetLastFailure(RAVO_ERROR_FORMAT, "record %s announces %lld samples", header->RecordName,
                       static_cast<long long>(announced));
        return false;
    }
    if (AllocateSamples(header, announced)) {
        return true;
    }
    const int64_t frequency = header->SamplingFrequency;
    if (frequency < 1 || frequency > (announced - 1) / kShorteningSeconds) {
        return false;
    }
    const int64_t step = kShorteningSeconds * frequency;
    // Sizes that exceed the machine's memory are not attempted.
    const int64_t excess = announced - MostSamplesInMemory(header->NumberOfSignals);
    const int64_t tooFew = std::max<int64_t>(excess - 1, 0) / step;
    const auto steps =
        FindFewest(tooFew, (announced - 1) / step, [header, announced, step](int64_t count) {
            return AllocateSamples(header, announced - count * step);
        });
    if (!steps) {
        return false;
    }
    header->NumberOfSamples = announced - *steps * step;
    return AllocateSamples(header, header->NumberOfSamples);
}

// Replaces the engine's samples by zeros, enough for the record.  On failure the earlier samples
// stay.
bool MakeRoom(ECG_HEADER* header) {
    const int64_t announced = header->NumberOfSamples;
    const Failure reason = LastFailure();
    const ECG_DATA_BUFFER earlier = DetachECGDataBuffer();
    g_WaveformType = MATERIAL_MIT;
    if (!AllocateShortenedSamples(header, announced)) {
        ReleaseECGDataBuffer(DetachECGDataBuffer());
        AttachECGDataBuffer(earlier);
        return false;
    }
    ReleaseECGDataBuffer(earlier);
    // Without the earlier samples more of the record may fit.
    if (header->NumberOfSamples != announced && !AllocateShortenedSamples(header, announced)) {
        return false;
    }
    SetLastFailure(reason); // failed attempts on the way do not count
    return true;
}

// Samples of one record on their way into the engine's buffer, a few frames at a time.
class RecordReader {
  public:
    explicit RecordReader(const ECG_HEADER* header)
        : m_record(header->WFDBHeader), m_signals(CountSignals(m_record)),
          m_channels(std::min<int64_t>(m_signals, header->NumberOfSignals)),
          m_framesPerRead(std::max<int64_t>(kValuesPerRead / std::max<int64_t>(m_signals, 1), 1)),
          m_values(static_cast<size_t>(m_framesPerRead * m_signals)) {}

    // Reads `frames` frames into the engine's buffer, or as many as the signal file has, and
    // returns their number.
    int64_t Read(int64_t frames) {
        const CKeepLastFailure keep; // the signal file may end
        int64_t done = 0;
        while (done < frames) {
            const int64_t wanted = std::min(frames - done, m_framesPerRead);
            const int64_t read =
                WFDBNextSample(m_record, m_values.data(), static_cast<int>(wanted));
            Distribute(done, read);
            done += read;
            if (read < wanted) {
                break;
            }
        }
        return done;
    }

  private:
    static int64_t CountSignals(const WFDB_HEADER* record) {
        return record == nullptr ? 0 : int64_t{record->NumberOfSignals};
    }

    void Distribute(int64_t position, int64_t frames) {
        for (int64_t channel = 0; channel < m_channels; ++channel) {
            const double* value = m_values.data() + channel;
            double* sample = g_pECGData[channel] + position;
            const bool inMicrovolts = m_record->Signal[channel].ADCUnit == 'u';
            for (int64_t i = 0; i < frames; ++i, value += m_signals) {
                sample[i] = inMicrovolts ? *value / kMicrovoltsPerMillivolt : *value;
            }
        }
    }

    WFDB_HEADER* m_record;
    int64_t m_signals;
    int64_t m_channels; // the host may have changed the header's count of signals
    int64_t m_framesPerRead;
    std::vector<double> m_values;
};

// Centres the `count` samples read from a channel when they are far off zero in their first minute.
// Leaves an ordinary baseline unchanged, and also a mean that is not a number.
void CorrectBaseline(double* samples, int64_t count, int64_t frequency) {
    // Limited to the count first, so that the product fits whatever the header states.
    const int64_t secondSpan = std::clamp<int64_t>(frequency, 0, count);
    const int64_t span = std::min(count, kBaselineSeconds * secondSpan);
    if (span == 0) {
        return;
    }
    const double mean = std::accumulate(samples, samples + span, 0.0) / static_cast<double>(span);
    if (mean <= -kLargestBaseline || mean >= kLargestBaseline) {
        std::for_each(samples, samples + count, [mean](double& sample) { sample -= mean; });
    }
}

} // namespace

ECG_HEADER* LoadMITHeader(const char* path) {
    const CMaterialLoad load;
    OwnedRecord record = OpenRecord(path);
    if (record == nullptr) {
        return nullptr;
    }
    ECGHeader header = DescribeRecord(record.get());
    if (header == nullptr) {
        return nullptr;
    }
    ECGHeader copy(CopyECGHeader(header.get()));
    if (copy == nullptr || !MakeRoom(header.get())) {
        return nullptr;
    }
    copy->NumberOfSamples = header->NumberOfSamples;
    ReplaceECGHeader(header.release());
    UpdateMITMappingLeadIndex();
    static_cast<void>(record.release()); // the copy owns it from here on
    return copy.release();
}

int LoadMITDatabase(ECG_HEADER* header) {
    if (header == nullptr) {
        SetLastFailure(RAVO_ERROR_ARGUMENT, "no record header is given");
        return 0;
    }
    const CMaterialLoad load;
    g_WaveformType = MATERIAL_MIT;
    g_nSampleCount = static_cast<uint64_t>(header->NumberOfSamples);
    g_nSampleRate = static_cast<uint32_t>(header->SamplingFrequency);
    const int64_t signals = std::max<int64_t>(header->NumberOfSignals, 0);
    if (signals > std::numeric_limits<int>::max()) {
        SetLastFailure(RAVO_ERROR_MEMORY, "no memory for %lld signals",
                       static_cast<long long>(signals));
        return 0;
    }
    if (ReallocateECGDataBuffer(static_cast<int>(signals)) == 0) {
        return 0;
    }
    const int64_t count = RecordReader(header).Read(header->NumberOfSamples);
    for (int64_t channel = 0; channel < signals; ++channel) {
        CorrectBaseline(g_pECGData[channel], count, header->SamplingFrequency);
    }
    return 1;
}
