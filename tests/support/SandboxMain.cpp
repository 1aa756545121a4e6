// The main function of the test programs that need a simulator: runs the tests in a sandbox, where
// /dev, /var/lock and /usr/local/tarnwick are the test's own.
//
// The library starts threads when it is loaded, and a process with threads neither enters a user
// namespace nor forks safely under a sanitizer.  So the sandbox is entered before the library's
// global objects are constructed: by a forked child, which starts the program again.
#include "tools/emulator/Sandbox.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

[[noreturn]] void EnterAndStartAnew(const std::vector<char*>& arguments, int reportWhyNot) {
    std::string whyNot;
    if (emulator::EnterSandbox(whyNot)) {
        // An abandoned test must not keep running when ctest kills its parent for exceeding the
        // time limit.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        execv("/proc/self/exe", arguments.data());
        whyNot = std::string("Cannot start the test program anew: ") + std::strerror(errno);
    }
    const ssize_t written = write(reportWhyNot, whyNot.data(), whyNot.size());
    _exit(written > 0 ? EXIT_FAILURE : EXIT_FAILURE + 1);
}

std::string ReadToEnd(int handle) {
    std::string text;
    std::array<char, 512> piece{};
    for (;;) {
        const ssize_t count = read(handle, piece.data(), piece.size());
        if (count > 0) {
            text.append(piece.data(), static_cast<size_t>(count));
        } else if (count == 0 || errno != EINTR) {
            return text;
        }
    }
}

int WaitForExitStatus(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) == -1 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Runs the tests in a child within the sandbox.  Returns its exit status, or leaves the reason in
// whyNot when there can be no sandbox.
int RunInSandbox(const std::vector<char*>& arguments, std::string& whyNot) {
    std::array<int, 2> report{};
    if (pipe2(report.data(), O_CLOEXEC) != 0) {
        whyNot = std::string("pipe: ") + std::strerror(errno);
        return EXIT_FAILURE;
    }
    // Not fork: after it, the thread sanitizer starts a thread of its own in the child.
    const pid_t child = _Fork();
    if (child == 0) {
        EnterAndStartAnew(arguments, report[1]);
    }
    close(report[1]);
    // The pipe closes by itself when the program is executed again.
    whyNot = child == -1 ? std::string("fork: ") + std::strerror(errno) : ReadToEnd(report[0]);
    close(report[0]);
    return child == -1 ? EXIT_FAILURE : WaitForExitStatus(child);
}

bool IsSandboxRequired() {
    const char* required = std::getenv("RAVO_REQUIRE_SANDBOX");
    return required != nullptr && std::strcmp(required, "1") == 0;
}

int ReportNoSandbox(const std::string& whyNot) {
    if (IsSandboxRequired()) {
        std::fprintf(stderr, "%s\n", whyNot.c_str());
        return EXIT_FAILURE;
    }
    // The word that GoogleTest uses, by which ctest recognises a test that was not run.
    std::printf("[  SKIPPED ] %s\n", whyNot.c_str());
    return EXIT_SUCCESS;
}

bool OnlyListsTests(const std::vector<char*>& arguments) {
    return std::any_of(arguments.begin(), arguments.end(), [](const char* argument) {
        return std::strcmp(argument, "--gtest_list_tests") == 0;
    });
}

// The library's first objects are constructed at priority 1010; glibc passes main's arguments to
// constructors.
__attribute__((constructor(1000))) void MoveIntoSandbox(int argc, char** argv) {
    std::vector<char*> arguments(argv, argv + argc);
    if (emulator::IsInSandbox() || OnlyListsTests(arguments)) {
        return;
    }
    arguments.push_back(nullptr);
    std::string whyNot;
    const int status = RunInSandbox(arguments, whyNot);
    const int result = whyNot.empty() ? status : ReportNoSandbox(whyNot);
    std::fflush(nullptr);
    // At this point neither the library nor the tests have been initialised.
    _exit(result);
}

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
