#include "tools/ravo/commands/ServerProgram.h"

#include "lab/common/Failure.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace cli {

using namespace lab;

namespace {

std::string ServerPath() {
    std::array<char, 4096> self{};
    const ssize_t length = ::readlink("/proc/self/exe", self.data(), self.size() - 1);
    const std::string path(self.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
    return path.substr(0, path.rfind('/') + 1) + "ravo-serve";
}

} // namespace

int BecomeServer(std::vector<std::string> words) {
    std::string path = ServerPath();
    words.insert(words.begin(), path);
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    ::execv(path.c_str(), arguments.data());
    if (errno == ENOENT) {
        Fail(kUsage, "ravo-serve", "is not installed.", "Install the package ravo-serve.");
    }
    Fail(kUsage, path, Format("cannot be started: %s.", std::strerror(errno)));
}

} // namespace cli
