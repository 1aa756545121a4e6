#pragma once

#include "lab/material/readers/SampleFile.h"

#include <memory>
#include <string>

namespace lab {

// Whether this build has the FLAC library.
bool CanReadFlac();

// A signal file of format 508, 516 or 524: a FLAC stream of 8, 16 or 24 bits with one channel for
// each of `channels` signals. Fails for any other file.
std::unique_ptr<SampleFile> OpenFlacFile(const std::string& path, int format, std::size_t channels);

} // namespace lab
