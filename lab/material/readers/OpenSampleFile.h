#pragma once

#include "lab/material/readers/SampleFile.h"

#include <memory>
#include <string>

namespace lab {

// `offset` bytes precede the file's first sample. `channels` is how many signals a compressed
// file must have. Fails for a format that is not read: `where` names the record, `signal` is the
// first signal concerned.
std::unique_ptr<SampleFile> OpenSampleFile(const std::string& path, int format, int64_t offset,
                                           std::size_t channels, const std::string& where,
                                           std::size_t signal);

// Compressed formats order the samples by instant, for any number of samples per frame.
bool IsCompressedFormat(int format);

} // namespace lab
