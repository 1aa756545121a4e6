#include "lab/plan/Hook.h"

#include "lab/common/Failure.h"
#include "lab/evidence/Numbers.h"
#include "lab/evidence/Times.h"

#include <nlohmann/json.hpp>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace lab {
namespace {

using json = nlohmann::ordered_json;

constexpr int kWatchMilliseconds = 50;
constexpr std::size_t kMostOutput = 1 << 20;

HookResult Error(const std::string& message) {
    return {"error", message, json::object(), 0};
}

// The descriptors that a hook gets; closed when the object is destroyed.
class Streams {
  public:
    // The input is a file in memory, so that a hook that does not read it does not block the run.
    explicit Streams(const std::string& input) {
        m_input = ::memfd_create("hook", MFD_CLOEXEC);
        std::array<int, 2> ends{-1, -1};
        const bool isMade =
            m_input != -1 &&
            ::write(m_input, input.data(), input.size()) == static_cast<ssize_t>(input.size()) &&
            ::lseek(m_input, 0, SEEK_SET) == 0 && ::pipe2(ends.data(), O_CLOEXEC) == 0;
        m_output = ends[0];
        m_written = ends[1];
        if (!isMade) {
            m_error = std::strerror(errno);
        }
    }
    ~Streams() {
        for (const int file : {m_input, m_output, m_written}) {
            ::close(file);
        }
    }
    Streams(const Streams&) = delete;
    Streams& operator=(const Streams&) = delete;

    const std::string& Problem() const { return m_error; }
    int Input() const { return m_input; }
    int Output() const { return m_output; }
    int Written() const { return m_written; }

    // From now on only the hook holds the end that it writes to.
    void LetGo() {
        ::close(m_written);
        m_written = -1;
    }

  private:
    int m_input = -1;
    int m_output = -1;
    int m_written = -1;
    std::string m_error;
};

// A file in the plan's folder; otherwise the program that the shell would find.
std::string ProgramOf(const std::string& name, const std::string& folder) {
    const std::string beside = folder + "/" + name;
    const bool isBeside =
        name.find('/') == std::string::npos && ::access(beside.c_str(), X_OK) == 0;
    return isBeside ? "./" + name : name;
}

// 0, or why the command cannot be started.
int Spawn(const std::vector<std::string>& command, const std::string& folder,
          const Streams& streams, pid_t& child) {
    std::vector<std::string> texts = command;
    texts[0] = ProgramOf(command[0], folder);
    std::vector<char*> arguments;
    arguments.reserve(texts.size() + 1);
    for (std::string& text : texts) {
        arguments.push_back(text.data());
    }
    arguments.push_back(nullptr);

    posix_spawn_file_actions_t files;
    ::posix_spawn_file_actions_init(&files);
    ::posix_spawn_file_actions_adddup2(&files, streams.Input(), STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&files, streams.Written(), STDOUT_FILENO);
    ::posix_spawn_file_actions_addchdir_np(&files, folder.c_str());
    posix_spawnattr_t attributes;
    ::posix_spawnattr_init(&attributes);
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    ::posix_spawnattr_setsigmask(&attributes, &none);
    ::posix_spawnattr_setsigdefault(&attributes, &all);
    ::posix_spawnattr_setpgroup(&attributes, 0);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK |
                                                POSIX_SPAWN_SETSIGDEF);
    const int error =
        ::posix_spawnp(&child, arguments[0], &files, &attributes, arguments.data(), environ);
    ::posix_spawnattr_destroy(&attributes);
    ::posix_spawn_file_actions_destroy(&files);
    return error;
}

// Reads the data available now; false at the end of output.
bool ReadSome(int file, std::string& output) {
    pollfd ready{file, POLLIN, 0};
    if (::poll(&ready, 1, kWatchMilliseconds) <= 0) {
        return true;
    }
    std::array<char, 4096> piece{};
    const ssize_t count = ::read(file, piece.data(), piece.size());
    if (count > 0 && output.size() < kMostOutput) {
        output.append(piece.data(), static_cast<std::size_t>(count));
    }
    return count > 0 || (count < 0 && errno == EINTR);
}

// Checks for the child's end without reaping it, so that the number of its process group stays
// reserved.
bool HasEnded(pid_t child) {
    siginfo_t state{};
    return ::waitid(P_PID, static_cast<id_t>(child), &state, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           state.si_pid == child;
}

// Ends all remaining processes of the group, and returns how the command itself ended.
int EndGroup(pid_t child) {
    ::kill(-child, SIGKILL);
    int status = 0;
    while (::waitpid(child, &status, 0) == -1 && errno == EINTR) {
    }
    return status;
}

// The value as it would appear in a plan, without a position.
TomlNode NodeOf(const json& value) {
    TomlNode node;
    node.text = value.is_string() ? value.get<std::string>() : value.dump();
    if (value.is_object()) {
        for (const auto& [name, member] : value.items()) {
            node.entries.push_back({name, {}, NodeOf(member)});
        }
        return node;
    }
    node.kind = value.is_string()           ? TomlNode::Kind::kText
                : value.is_number_integer() ? TomlNode::Kind::kWhole
                : value.is_number()         ? TomlNode::Kind::kFraction
                : value.is_boolean()        ? TomlNode::Kind::kTruth
                                            : TomlNode::Kind::kList;
    node.number = value.is_number() ? value.get<double>() : 0.0;
    node.whole = value.is_number_integer() ? value.get<int64_t>() : 0;
    node.truth = value.is_boolean() && value.get<bool>();
    return node;
}

void TakeScore(HookResult& result, const json& score) {
    const TomlNode table = NodeOf(score);
    const auto complaints = ComplaintsOfScore(table);
    if (complaints.empty()) {
        result.score = ReadScore(table);
        return;
    }
    const Complaint& first = complaints.front();
    result = Error("printed an invalid score: " + first.field + " " + first.wrong + "; " +
                   first.allowed);
}

std::string EndText(int status) {
    return WIFEXITED(status) ? Format("ended with status %d", WEXITSTATUS(status))
                             : Format("was ended by signal %d", WTERMSIG(status));
}

} // namespace

HookResult JudgeHookOutput(const std::string& output) {
    const json printed = json::parse(output, nullptr, false);
    if (!printed.is_object()) {
        return Error(output.empty() ? "printed nothing; a JSON object is expected"
                                    : "printed no JSON object");
    }
    const json verdict = printed.value("verdict", json());
    if (verdict != "passed" && verdict != "failed" && verdict != "none") {
        return Error("printed no \"verdict\" of \"passed\", \"failed\" or \"none\"");
    }
    const json values = printed.value("values", json::object());
    if (!values.is_object()) {
        return Error("printed \"values\" that are not an object");
    }
    HookResult result{verdict == "failed" ? "failed" : "passed",
                      verdict == "failed" ? "the hook's verdict is failed" : "", json::object(), 0};
    for (const auto& [name, value] : values.items()) {
        if (!value.is_number() && !value.is_string()) {
            return Error("printed the value \"" + name + "\", which is neither number nor text");
        }
        result.values[name] =
            value.is_number_float() ? json(AsPrinted(value.get<double>())) : value;
    }
    if (printed.contains("score")) {
        TakeScore(result, printed["score"]);
    }
    return result;
}

HookResult RunHook(const std::vector<std::string>& command, const std::string& folder,
                   double timeout, const std::string& input, const Interrupt& interrupt) {
    Streams streams(input);
    pid_t child = -1;
    if (!streams.Problem().empty()) {
        return Error("cannot be started: " + streams.Problem());
    }
    if (const int error = Spawn(command, folder, streams, child); error != 0) {
        return Error(Format("cannot be started: %s", std::strerror(error)));
    }
    streams.LetGo();
    const double end = MonotonicSeconds() + timeout;
    std::string output;
    while (ReadSome(streams.Output(), output) && !HasEnded(child) && interrupt.Signal() == 0 &&
           MonotonicSeconds() < end) {
    }
    while (!HasEnded(child) && interrupt.Signal() == 0 && MonotonicSeconds() < end) {
        interrupt.WaitUntil(std::chrono::steady_clock::now() +
                            std::chrono::milliseconds(kWatchMilliseconds));
    }
    const bool isLate = !HasEnded(child);
    const int status = EndGroup(child);
    while (ReadSome(streams.Output(), output) && MonotonicSeconds() < end + 1.0) {
    }
    if (interrupt.Signal() != 0) {
        return {"error", "interrupted", json::object(), interrupt.Signal()};
    }
    if (isLate) {
        return Error(Format("was still running after %g s and has been ended", timeout));
    }
    return status == 0 ? JudgeHookOutput(output) : Error(EndText(status));
}

} // namespace lab
