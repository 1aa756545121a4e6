#pragma once

#include "lab/material/readers/SampleFile.h"

#include <memory>
#include <string>

namespace lab {

// The file's first sample lies behind `offset` bytes. `channels` is how many signals a compressed
// file must have. Fails for a format that is not read: `where` names the record, `signal` is the
// first signal concerned.
std::unique_ptr<SampleFile> OpenSampleFile(const std::string& path, int format, int64_t offset,
                                           std::size_t channels, const std::string& where,
                                           std::size_t signal);

// Compressed formats give the samples of one instant after the other, whatever a frame is.
bool IsCompressedFormat(int format);

} // namespace lab
