// The reader of CSV files: any text is refused with a sentence or gives the rows that it has.
#include "fuzz/Require.h"
#include "fuzz/ScratchDirectory.h"
#include "lab/common/Failure.h"
#include "lab/material/readers/CsvReader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string path = ScratchDirectory::Get().Write("a.csv", data, size);
    for (const bool hasRate : {false, true}) {
        try {
            lab::CsvOptions options;
            if (hasRate) {
                options.rate = 500.0;
            }
            const auto reader = lab::OpenCsv(path, options);
            reader->Begin({0});
            lab::Samples block;
            int64_t count = 0;
            while (reader->Read(block)) {
                count += static_cast<int64_t>(block[0].size());
            }
            Require(count == reader->Record().signals[0].samples);
        } catch (const lab::Failure& failure) {
            Require(failure.Status() == lab::kMaterial);
        }
    }
    return 0;
}
