#include "tests/examples/Program.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

Program::Program(std::vector<std::string> command) {
    std::vector<char*> words;
    words.reserve(command.size() + 1);
    for (std::string& word : command) {
        words.push_back(word.data());
    }
    words.push_back(nullptr);
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    m_child = fork();
    if (m_child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(ends[1], STDOUT_FILENO);
        execv(words[0], words.data());
        _exit(127);
    }
    close(ends[1]);
    m_output = ends[0];
}

Program::~Program() {
    if (m_child > 0) {
        Signal(SIGKILL);
        Wait();
    }
    close(m_output);
}

std::string Program::ReadLine() {
    for (;;) {
        const std::size_t end = m_text.find('\n');
        if (end != std::string::npos) {
            std::string line = m_text.substr(0, end);
            m_text.erase(0, end + 1);
            return line;
        }
        if (!ReadMore()) {
            return {};
        }
    }
}

void Program::Signal(int number) const {
    kill(m_child, number);
}

std::string Program::ReadRest() {
    while (ReadMore()) {
    }
    return std::move(m_text);
}

int Program::Wait() {
    int status = 0;
    while (waitpid(m_child, &status, 0) == -1 && errno == EINTR) {
    }
    m_child = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

bool Program::ReadMore() {
    std::array<char, 4096> piece{};
    ssize_t count = 0;
    do {
        count = read(m_output, piece.data(), piece.size());
    } while (count == -1 && errno == EINTR);
    if (count > 0) {
        m_text.append(piece.data(), static_cast<std::size_t>(count));
    }
    return count > 0;
}
