#pragma once

#include <string>

// Keeps a program correct when its caller redirects or closes its standard streams.
namespace lab {

// Reopens closed descriptors 0 to 2 on /dev/null, so that no file or port opened later gets one of
// them. Writes to such a stream fail.
void KeepStandard();

// Flushes standard output. Returns why some of the output was lost, such as a full disk or a closed
// stream; empty when none was.
std::string OutputFailure();

// Throws a std::runtime_error with that reason when there is one.
void RequireWrittenOutput();

} // namespace lab
