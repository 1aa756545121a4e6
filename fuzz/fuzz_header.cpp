// The header reader: any file gives null or a header whose texts are terminated and whose numbers
// are within their ranges.
#include "fuzz/Require.h"
#include "fuzz/ScratchDirectory.h"
#include "WFDB/main.h"
#include "WFDB/wfdb.h"

#include <cstring>

namespace {

template <size_t Size>
bool IsTerminated(const char (&text)[Size]) {
    return std::memchr(text, '\0', Size) != nullptr;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string path = ScratchDirectory::Get().Write("a.hea", data, size);
    WFDB_HEADER* header = WFDBReadHeader(path.data());
    if (header == nullptr) {
        return 0;
    }
    Require(IsTerminated(header->RecordName));
    Require(IsTerminated(header->BaseTime));
    Require(IsTerminated(header->BaseDate));
    Require(header->NumberOfSignals >= 0);
    for (int64_t i = 0; i < header->NumberOfSignals; ++i) {
        const WFDB_SIGNAL& signal = header->Signal[i];
        Require(IsTerminated(signal.FileName));
        Require(IsTerminated(signal.Description));
        Require(std::strstr(signal.FileName, ".dat") != nullptr);
        Require(signal.SamplesPerFrame >= 1);
        Require(signal.Skew >= 0);
        Require(signal.ByteOffset >= 0);
        Require(signal.ADCGain != 0.0);
    }
    GetRecordTime(header);
    WFDBFreeHeader(header);
    return 0;
}
