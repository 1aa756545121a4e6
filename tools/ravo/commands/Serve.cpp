#include "lab/common/Failure.h"
#include "tools/ravo/commands/Commands.h"

#include <CLI/CLI.hpp>

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

namespace cli {

using namespace lab;

namespace {

// The server is a program of its own, beside this one: few need it, and it takes a library more.
std::string ServerPath() {
    std::array<char, 4096> self{};
    const ssize_t length = ::readlink("/proc/self/exe", self.data(), self.size() - 1);
    const std::string path(self.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
    return path.substr(0, path.rfind('/') + 1) + "ravo-serve";
}

int Become(std::vector<std::string> words) {
    std::string path = ServerPath();
    words.insert(words.begin(), path);
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    ::execv(path.c_str(), arguments.data());
    if (errno == ENOENT) {
        Fail(kUsage, "ravo serve", "is not installed.", "Install the package ravo-serve.");
    }
    Fail(kUsage, path, Format("cannot be started: %s.", std::strerror(errno)));
}

} // namespace

void AddServe(CLI::App& app, Action& action) {
    CLI::App* command = app.add_subcommand(
        "serve", "Show what plays on a page, and let it be controlled from there");
    command->prefix_command();
    command->set_help_flag(); // its options, --help among them, are the server's
    command->callback(
        [command, &action] { action = [words = command->remaining()] { return Become(words); }; });
}

} // namespace cli
