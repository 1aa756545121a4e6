// The reader of annotation files: annotations that are read completely come back the same when they
// are written.
#include "fuzz/Require.h"
#include "fuzz/ScratchDirectory.h"
#include "lab/common/Failure.h"
#include "lab/material/readers/AnnotationFile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const ScratchDirectory& directory = ScratchDirectory::Get();
    const lab::Rate rate = lab::MakeRate(250, 1);
    std::vector<lab::SourceAnnotation> read;
    try {
        read = lab::ReadAnnotationFile(directory.Write("a.atr", data, size), rate);
    } catch (const lab::Failure&) {
        return 0; // incomplete, as reported
    }
    const std::string encoded = lab::EncodeAnnotations(read);
    const auto again =
        lab::ReadAnnotationFile(directory.Write("b.atr", encoded.data(), encoded.size()), rate);
    Require(again.size() == read.size());
    for (size_t i = 0; i < read.size(); ++i) {
        Require(again[i].type == read[i].type);
        Require(again[i].text == read[i].text.substr(0, 1022));
    }
    return 0;
}
