// ravo-worker: the process behind each simulator of the Python package. It is started by the
// package and exchanges messages with it over its standard input and output.

#include "lab/common/Interrupt.h"
#include "lab/common/StandardStreams.h"
#include "lab/material/Staging.h"
#include "tools/worker/Channel.h"
#include "tools/worker/Inbox.h"
#include "tools/worker/Service.h"

#include <array>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <pthread.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr const char* kUsageText =
    "ravo-worker is started by the Python package ravo; it is of no use by itself.\n";

struct Arguments {
    pid_t interpreter = 0;
    std::string outputs; // where the emulated simulator writes the frames that it receives
};

bool Parse(int argc, char** argv, Arguments& arguments) {
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string_view name = argv[i];
        const std::string_view value = argv[i + 1];
        if (name == "--outputs") {
            arguments.outputs = value;
        } else if (name != "--interpreter" ||
                   std::from_chars(value.data(), value.data() + value.size(), arguments.interpreter)
                           .ec != std::errc()) {
            return false;
        }
    }
    return argc % 2 == 1 && argc > 1;
}

// Other output must not get in between the messages.
int TakeStandardOutput() {
    const int out = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    ::dup2(STDERR_FILENO, STDOUT_FILENO);
    return out;
}

// A missing reader shows as a failed write instead. Called before any thread is created: all
// inherit the mask.
void BlockPipeSignal() {
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
}

// All temporary files go there and disappear with the worker. An emulated simulator's worker has a
// private folder that vanishes with its last process, however that ends.
std::string ParentOfTemporary(const Arguments& arguments) {
    return arguments.outputs.empty()
               ? std::filesystem::temp_directory_path().string()
               : std::filesystem::path(arguments.outputs).parent_path().string();
}

void Serve(const Arguments& arguments, int out) {
    const lab::TemporaryDirectory temporary(ParentOfTemporary(arguments));
    ::setenv("TMPDIR", temporary.Path().c_str(), 1);
    worker::Channel channel(STDIN_FILENO, out);
    const lab::Interrupt interrupt;
    worker::Inbox inbox(channel, interrupt, arguments.interpreter, [&temporary] {
        std::error_code ignored;
        std::filesystem::remove_all(temporary.Path(), ignored);
        ::_exit(EXIT_FAILURE);
    });
    worker::Service service(channel, interrupt, arguments.outputs);
    worker::Message request;
    while (inbox.Next(request)) {
        service.Answer(request);
        request = worker::Message();
    }
}

} // namespace

int main(int argc, char** argv) {
    lab::KeepStandard();
    Arguments arguments;
    if (!Parse(argc, argv, arguments)) {
        std::fputs(kUsageText, stderr);
        return lab::kUsage;
    }
    BlockPipeSignal();
    lab::BlockTimerSignals();
    const int out = TakeStandardOutput();
    try {
        Serve(arguments, out);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "ravo-worker: %s\n", error.what());
        return lab::kCannotWrite;
    }
    return lab::kDone;
}
