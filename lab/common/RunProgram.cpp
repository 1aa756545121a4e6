#include "lab/common/RunProgram.h"

#include "lab/common/StandardStreams.h"

#include <cstdio>
#include <exception>

namespace lab {

int RunProgram(const char* name, int failure, const std::function<int()>& run) {
    KeepStandard();
    try {
        const int status = run();
        RequireWrittenOutput();
        return status;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", name, error.what());
        return failure;
    }
}

} // namespace lab
