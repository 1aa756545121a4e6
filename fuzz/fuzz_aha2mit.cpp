// The AHA converter: any text gives a signal file of whole frames, and no more frames than lines.
#include "fuzz/Require.h"
#include "fuzz/ScratchDirectory.h"
#include "WFDB/ahaecg2mit.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const ScratchDirectory& scratch = ScratchDirectory::Get();
    const std::string path = scratch.Write("a.txt", data, size);
    WFDB_HEADER* header = ConvertAHARecord(path.c_str(), scratch.Path().c_str());
    Require(header != nullptr);
    const auto frames = static_cast<uint64_t>(header->NumberOfSamplesPerSignal);
    Require(std::filesystem::file_size(scratch.File("a.dat")) == 3 * frames);
    // The shortest line is 1,2,"N without its end.
    Require(frames <= size / 5 + 1);
    WFDBFreeHeader(header);
    return 0;
}
