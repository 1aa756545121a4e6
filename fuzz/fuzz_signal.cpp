// The signal file readers of both formats: reading many frames in one call and one frame per call
// yields the same bits, whatever positions are requested in between.
//
// Input: format, number of signals, one byte of samples per frame for each signal, number of steps,
// five bytes for each step, and the signal file.
#include "fuzz/ScratchDirectory.h"
#include "WFDB/signal.h"
#include "WFDB/wfdb.h"

#include <cstring>
#include <vector>

namespace {

class Bytes {
  public:
    Bytes(const uint8_t* data, size_t size) : m_data(data), m_size(size) {}

    uint8_t Next() {
        if (m_size == 0) {
            return 0;
        }
        --m_size;
        return *m_data++;
    }
    int NextInt() {
        uint32_t value = 0;
        for (int i = 0; i < 4; ++i) {
            value = value << 8 | Next();
        }
        return static_cast<int>(value);
    }
    const uint8_t* Rest() const { return m_data; }
    size_t RestSize() const { return m_size; }

  private:
    const uint8_t* m_data;
    size_t m_size;
};

struct Step {
    uint8_t Kind;
    int Argument;
};

std::string ComposeHeader(Bytes& input) {
    const std::string format = input.Next() % 2 == 0 ? "16" : "212";
    const int signals = 1 + input.Next() % 12;
    std::string text = "a " + std::to_string(signals) + " 360 1000\n";
    for (int i = 0; i < signals; ++i) {
        const int samplesPerFrame = input.Next() % 8;
        text += "a.dat " + format + "x" + std::to_string(samplesPerFrame) + " 200(-5)/mV\n";
    }
    return text;
}

WFDB_HEADER* Open(std::string path) {
    WFDB_HEADER* header = WFDBReadHeader(path.data());
    if (WFDBLoadSignal(ScratchDirectory::Get().Path().c_str(), header) != 1) {
        std::abort();
    }
    return header;
}

template <class Value>
using ReadFunction = int (*)(WFDB_HEADER*, Value*, int);

template <class Value>
void ReadBothWays(ReadFunction<Value> read, WFDB_HEADER* inOneCall, WFDB_HEADER* inMany,
                  int frames) {
    const auto signals = static_cast<size_t>(inOneCall->NumberOfSignals);
    std::vector<Value> expected(signals * static_cast<size_t>(frames));
    std::vector<Value> single(expected.size());
    int count = 0;
    while (count < frames &&
           read(inMany, single.data() + static_cast<size_t>(count) * signals, 1) == 1) {
        ++count;
    }
    if (read(inOneCall, expected.data(), frames) != count) {
        std::abort();
    }
    const size_t bytes = static_cast<size_t>(count) * signals * sizeof(Value);
    if (bytes > 0 && std::memcmp(single.data(), expected.data(), bytes) != 0) {
        std::abort();
    }
}

void Take(const Step& step, WFDB_HEADER* inOneCall, WFDB_HEADER* inMany) {
    const SIGNAL_HANDLER* handler = GetSignalHandler(inOneCall);
    switch (step.Kind % 4) {
    case 0:
        ReadBothWays(handler->NextSample, inOneCall, inMany, step.Argument & 0xFF);
        break;
    case 1:
        ReadBothWays(handler->NextSampleEx, inOneCall, inMany, step.Argument & 0xFF);
        break;
    case 2:
        if (handler->Seek(inOneCall, step.Argument) != handler->Seek(inMany, step.Argument)) {
            std::abort();
        }
        break;
    default:
        if (handler->SeekEx(inOneCall, step.Argument) != handler->SeekEx(inMany, step.Argument)) {
            std::abort();
        }
        break;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Bytes input(data, size);
    const std::string text = ComposeHeader(input);
    std::vector<Step> steps(1 + input.Next() % 16);
    for (Step& step : steps) {
        step.Kind = input.Next();
        step.Argument = input.NextInt();
    }
    const ScratchDirectory& directory = ScratchDirectory::Get();
    const std::string path = directory.Write("a.hea", text.data(), text.size());
    directory.Write("a.dat", input.Rest(), input.RestSize());

    WFDB_HEADER* inOneCall = Open(path);
    WFDB_HEADER* inMany = Open(path);
    for (const Step& step : steps) {
        Take(step, inOneCall, inMany);
    }
    WFDBFreeHeader(inOneCall);
    WFDBFreeHeader(inMany);
    return 0;
}
