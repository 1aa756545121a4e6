#include "tools/emulator/ChildCommand.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace emulator {
namespace {

[[noreturn]] void Become(std::vector<std::string>& words, int gate) {
    char go = 0;
    if (read(gate, &go, 1) != 1) {
        _exit(kOwnFailure);
    }
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);

    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
    const int error = errno;
    std::fprintf(stderr, "ravo-emulator: cannot run %s: %s\n", arguments[0], std::strerror(error));
    _exit(error == ENOENT ? kNotFound : kCannotExecute);
}

} // namespace

ChildCommand::ChildCommand(std::vector<std::string> words) {
    std::array<int, 2> gate{};
    if (pipe2(gate.data(), O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
    m_process = fork();
    if (m_process == 0) {
        close(gate[1]);
        // The command ends when the emulator ends.
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        Become(words, gate[0]);
    }
    close(gate[0]);
    m_gate = gate[1];
    if (m_process == -1) {
        const int error = errno;
        close(m_gate);
        throw std::system_error(error, std::generic_category(), "fork");
    }
}

ChildCommand::~ChildCommand() {
    close(m_gate);
    if (m_process != -1) {
        kill(m_process, SIGTERM);
        waitpid(m_process, nullptr, 0);
    }
}

void ChildCommand::LetGo() {
    const char go = 1;
    while (write(m_gate, &go, 1) == -1 && errno == EINTR) {
    }
}

void ChildCommand::Signal(int signal) const {
    if (m_process != -1) {
        kill(m_process, signal);
    }
}

bool ChildCommand::HasEnded() {
    int status = 0;
    if (m_process != -1 && waitpid(m_process, &status, WNOHANG) == m_process) {
        m_process = -1;
        m_status = WIFEXITED(status) ? WEXITSTATUS(status) : kKilledBySignal + WTERMSIG(status);
    }
    return m_process == -1;
}

} // namespace emulator
