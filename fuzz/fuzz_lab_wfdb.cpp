// The reader of whole WFDB records: any header, with any signal file beside it, is refused with a
// sentence or gives the samples that it promises.
#include "fuzz/Require.h"
#include "fuzz/ScratchDirectory.h"
#include "lab/common/Failure.h"
#include "lab/material/readers/WfdbReader.h"

#include <algorithm>
#include <string_view>

// The header up to the first zero byte, then the signal file.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const std::string_view header = input.substr(0, input.find('\0'));
    const std::string_view samples = input.substr(std::min(header.size() + 1, size));
    const ScratchDirectory& directory = ScratchDirectory::Get();
    directory.Write("a.dat", samples.data(), samples.size());
    directory.Write("a.hea", "a 1 100 2\na.dat 16\n", 19);
    const std::string path = directory.Write("r.hea", header.data(), header.size());
    try {
        const auto reader = lab::OpenWfdb(path);
        Require(!reader->Record().signals.empty());
        reader->Begin({0});
        lab::Samples block;
        int64_t count = 0;
        // Gaps may be long and cost nothing but time.
        for (int blocks = 0; blocks < 64 && reader->Read(block); ++blocks) {
            Require(block.size() == 1);
            count += static_cast<int64_t>(block[0].size());
        }
        Require(count <= reader->Record().signals[0].samples);
    } catch (const lab::Failure& failure) {
        Require(failure.Status() == lab::kMaterial);
    }
    return 0;
}
