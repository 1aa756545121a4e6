#include "lab/common/StandardStreams.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <unistd.h>

namespace lab {

void KeepStandard() {
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
        if (::fcntl(stream, F_GETFD) == -1) {
            // open() returns the lowest free descriptor, which is the stream's; it is opened for
            // the opposite direction.
            [[maybe_unused]] const int opened =
                ::open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
        }
    }
}

std::string OutputFailure() {
    if (std::fflush(stdout) != 0) {
        return std::strerror(errno);
    }
    return std::ferror(stdout) != 0 ? "an earlier part of it was lost" : "";
}

void RequireWrittenOutput() {
    const std::string reason = OutputFailure();
    if (!reason.empty()) {
        throw std::runtime_error("standard output: cannot be written: " + reason + ".");
    }
}

} // namespace lab
