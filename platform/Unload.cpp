#include "platform/Unload.h"

#include "platform/ConstructionOrder.h"
#include "platform/LastError.h"

#include <atomic>
#include <unistd.h>

namespace {

std::atomic<bool> s_isLeft{false};

// Before any thread is started.
struct LoadingProcess {
    LoadingProcess() : id(getpid()) {}
    pid_t id;
};
RAVO_CONSTRUCT_PLATFORM const LoadingProcess s_process;

} // namespace

bool IsForkedChild() {
    return getpid() != s_process.id;
}

bool RequireLoadingProcess() {
    if (IsForkedChild()) {
        SetLastFailure(RAVO_ERROR_FORKED, "the library does not work in a forked child");
        return false;
    }
    return true;
}

bool IsLibraryLeft() {
    return s_isLeft;
}

void LeaveLibrary() {
    s_isLeft = true;
}
