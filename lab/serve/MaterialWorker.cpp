#include "lab/serve/MaterialWorker.h"

#include "lab/common/Json.h"
#include "lab/serve/HttpFailure.h"
#include "lab/serve/SendAll.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace lab::serve {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kWorkerSocket = 3;
constexpr int kNoAnswer = 503;

// Status and length of an answer's body: "200 1234\n".
constexpr std::size_t kLongestAnswerHead = 32;

constexpr int kLookMilliseconds = 20; // interval of checks whether the answer is still wanted

// How long to wait for an answer.
struct Patience {
    Clock::time_point deadline;
    const std::function<bool()>& isWanted;

    bool IsOver() const { return Clock::now() >= deadline || !isWanted(); }
};

bool WaitReadable(int socket, const Patience& patience) {
    while (!patience.IsOver()) {
        pollfd wait{socket, POLLIN, 0};
        const int ready = ::poll(&wait, 1, kLookMilliseconds);
        if (ready > 0 || (ready < 0 && errno != EINTR)) {
            return ready > 0;
        }
    }
    return false;
}

// False when the process has ended or the time is up.
bool ReadMore(int socket, std::string& text, const Patience& patience) {
    std::array<char, 65536> piece{};
    if (!WaitReadable(socket, patience)) {
        return false;
    }
    const ssize_t count = ::recv(socket, piece.data(), piece.size(), 0);
    if (count > 0) {
        text.append(piece.data(), static_cast<std::size_t>(count));
    }
    return count > 0;
}

bool ReadAnswer(int socket, HttpAnswer& answer, const Patience& patience) {
    std::string text;
    while (text.find('\n') == std::string::npos) {
        if (text.size() > kLongestAnswerHead || !ReadMore(socket, text, patience)) {
            return false;
        }
    }
    std::size_t length = 0;
    if (std::sscanf(text.c_str(), "%d %zu", &answer.status, &length) != 2) {
        return false;
    }
    text.erase(0, text.find('\n') + 1);
    while (text.size() < length) {
        if (!ReadMore(socket, text, patience)) {
            return false;
        }
    }
    answer.body = std::move(text);
    return true;
}

// Starts this same program at the other end of `socket`, in a process group of its own, so that
// only the server gets Ctrl-C.
pid_t StartProcess(int socket, const std::string& root) {
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, socket, kWorkerSocket);
    ::posix_spawnattr_init(&attributes);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    std::string program = "ravo-serve";
    std::string option = "--material-worker";
    std::string folder = root;
    std::array<char*, 4> arguments = {program.data(), option.data(), folder.data(), nullptr};
    pid_t process = -1;
    const int error =
        ::posix_spawn(&process, "/proc/self/exe", &actions, &attributes, arguments.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    ::posix_spawnattr_destroy(&attributes);
    return error == 0 ? process : -1;
}

} // namespace

MaterialWorker::MaterialWorker(std::string root) : m_root(std::move(root)) {}

MaterialWorker::~MaterialWorker() {
    Stop();
}

void MaterialWorker::Start() {
    const MutexGuard lock(m_lock);
    if (m_isStopped || m_socket != -1) {
        return;
    }
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        return;
    }
    m_process = StartProcess(ends[1], m_root);
    ::close(ends[1]);
    m_socket = ends[0];
}

void MaterialWorker::End() {
    const MutexGuard lock(m_lock);
    if (m_socket != -1) {
        ::close(m_socket);
    }
    if (m_process > 0) {
        ::kill(m_process, SIGKILL);
        ::waitpid(m_process, nullptr, 0);
    }
    m_socket = -1;
    m_process = -1;
}

void MaterialWorker::Stop() {
    {
        const MutexGuard lock(m_lock);
        m_isStopped = true;
        if (m_process > 0) {
            ::kill(m_process, SIGKILL); // which ends a wait for its answer
        }
    }
    const MutexGuard asking(m_asking);
    End();
}

bool MaterialWorker::IsStopped() {
    const MutexGuard lock(m_lock);
    return m_isStopped;
}

HttpAnswer MaterialWorker::Ask(const std::string& question, Clock::time_point deadline,
                               const std::function<bool()>& isWanted) {
    const MutexGuard asking(m_asking);
    Start();
    HttpAnswer answer;
    if (!SendAll(m_socket, question + "\n") ||
        !ReadAnswer(m_socket, answer, {deadline, isWanted})) {
        const bool isLate = Clock::now() >= deadline;
        End();
        if (IsStopped()) {
            Refuse(kNoAnswer, "ravo-serve", "is ending.");
        }
        Refuse(kNoAnswer, "material", isLate ? "could not be read in time." : "could not be read.",
               isLate ? "Ask for less of it, or for a folder with fewer files." : "");
    }
    return answer;
}

HttpAnswer MaterialWorker::Check(const std::string& body, Clock::time_point deadline,
                                 const std::function<bool()>& isWanted) {
    Json json;
    json.BeginObject().Field("check", body).EndObject();
    return Ask(json.Text(), deadline, isWanted);
}

HttpAnswer MaterialWorker::List(const std::string& folder, Clock::time_point deadline) {
    Json json;
    json.BeginObject().Field("list", folder).EndObject();
    return Ask(json.Text(), deadline);
}

HttpAnswer MaterialWorker::Overview(const std::string& material, Clock::time_point deadline) {
    Json json;
    json.BeginObject().Field("overview", material).EndObject();
    return Ask(json.Text(), deadline);
}

HttpAnswer MaterialWorker::Preview(const std::string& material, double start, double seconds,
                                   Clock::time_point deadline) {
    Json json;
    json.BeginObject().Field("preview", material);
    json.Field("start", start).Field("seconds", seconds).EndObject();
    return Ask(json.Text(), deadline);
}

} // namespace lab::serve
