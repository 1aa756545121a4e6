#include "CommandLine.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <grp.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

constexpr const char* kPrograms = RAVO_PROGRAM_DIRECTORY;

std::string TemporaryFile() {
    std::string path = (fs::temp_directory_path() / "ravo-stream.XXXXXX").string();
    const int handle = ::mkostemp(path.data(), O_CLOEXEC);
    if (handle == -1) {
        throw std::runtime_error("no temporary file");
    }
    ::close(handle);
    return path;
}

std::string PathOf(const std::string& program) {
    return program.front() == '/' ? program : std::string(kPrograms) + "/" + program;
}

bool BecomeOrdinaryUser() {
    constexpr unsigned int kNobody = 65534;
    return ::geteuid() != 0 ||
           (::setgroups(0, nullptr) == 0 && ::setgid(kNobody) == 0 && ::setuid(kNobody) == 0);
}

// Between fork and exec no memory may be allocated: another thread may have held the heap's lock.
[[noreturn]] void Become(const std::vector<char*>& arguments, const std::string& directory,
                         const std::string& outPath, const std::string& errPath, Process::As user) {
    const int out = ::open(outPath.c_str(), O_WRONLY);
    const int err = ::open(errPath.c_str(), O_WRONLY);
    const int in = ::open("/dev/null", O_RDONLY);
    ::dup2(in, STDIN_FILENO);
    ::dup2(out, STDOUT_FILENO);
    ::dup2(err, STDERR_FILENO);
    if (!directory.empty() && ::chdir(directory.c_str()) != 0) {
        ::_exit(126);
    }
    if (user == Process::As::kOrdinaryUser && !BecomeOrdinaryUser()) {
        ::_exit(126);
    }
    ::execv(arguments[0], arguments.data());
    ::_exit(errno == EACCES ? 126 : 127);
}

} // namespace

Process::Process(const std::string& program, const std::vector<std::string>& arguments,
                 const std::string& directory, As user)
    : m_outPath(TemporaryFile()), m_errPath(TemporaryFile()) {
    std::vector<std::string> all = {PathOf(program)};
    all.insert(all.end(), arguments.begin(), arguments.end());
    std::vector<char*> pointers;
    pointers.reserve(all.size() + 1);
    for (std::string& argument : all) {
        pointers.push_back(argument.data());
    }
    pointers.push_back(nullptr);
    m_child = ::fork();
    if (m_child == 0) {
        Become(pointers, directory, m_outPath, m_errPath, user);
    }
}

Process::~Process() {
    if (m_child > 0) {
        Signal(SIGKILL);
        ::waitpid(m_child, nullptr, 0);
    }
    ::unlink(m_outPath.c_str());
    ::unlink(m_errPath.c_str());
}

void Process::Signal(int number) const {
    ::kill(m_child, number);
}

Result Process::Wait() {
    int status = 0;
    while (::waitpid(m_child, &status, 0) == -1 && errno == EINTR) {
    }
    m_child = -1;
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), ReadFile(m_outPath),
            ReadFile(m_errPath)};
}

Result Ravo(const std::vector<std::string>& arguments, const std::string& directory) {
    return Process("ravo", arguments, directory).Wait();
}

Result RavoAsOrdinaryUser(const std::vector<std::string>& arguments) {
    return Process("ravo", arguments, {}, Process::As::kOrdinaryUser).Wait();
}

Result ByShell(const std::string& program, const std::vector<std::string>& arguments,
               const std::string& redirection) {
    std::vector<std::string> all = {"-c", "exec \"$@\" " + redirection, "sh", PathOf(program)};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return Process("/bin/sh", all).Wait();
}

Result MakeRecord(const std::vector<std::string>& arguments) {
    return Process("ravo-make-record", arguments).Wait();
}

std::string Format16(const std::vector<int16_t>& samples) {
    std::string bytes;
    for (const int16_t sample : samples) {
        const auto value = static_cast<uint16_t>(sample);
        bytes += static_cast<char>(static_cast<unsigned char>(value & 0xFF));
        bytes += static_cast<char>(static_cast<unsigned char>(value >> 8));
    }
    return bytes;
}
