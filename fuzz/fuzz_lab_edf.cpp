// The reader of EDF, EDF+ and BDF files: any file is refused with a sentence or gives about the
// samples that it promises, and its annotations.
#include "fuzz/Require.h"
#include "fuzz/ScratchDirectory.h"
#include "lab/common/Failure.h"
#include "lab/material/readers/EdfReader.h"

#include <optional>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string path = ScratchDirectory::Get().Write("a.edf", data, size);
    try {
        const auto reader = lab::OpenEdf(path, std::nullopt);
        Require(!reader->Record().signals.empty());
        reader->Annotations();
        reader->Begin({0});
        lab::Samples block;
        for (int blocks = 0; blocks < 64 && reader->Read(block); ++blocks) {
            Require(block.size() == 1);
        }
    } catch (const lab::Failure& failure) {
        Require(failure.Status() == lab::kMaterial);
    }
    return 0;
}
