#include "lab/evidence/Journal.h"

#include "lab/common/Failure.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace lab {
namespace {

using Event = nlohmann::ordered_json;

constexpr mode_t kFileMode = 0644;
constexpr std::chrono::seconds kLongestRemoval(5);

struct Lines {
    std::vector<Event> events;
    int64_t size = 0; // the length in bytes, without a torn last line
};

// A line counts once its end is present: it is written in one call.
Lines ParseLines(const std::string& path, const std::string& text) {
    Lines lines;
    std::size_t at = 0;
    for (auto end = text.find('\n'); end != std::string::npos; end = text.find('\n', at)) {
        Event event = Event::parse(text.begin() + static_cast<std::ptrdiff_t>(at),
                                   text.begin() + static_cast<std::ptrdiff_t>(end), nullptr, false);
        if (!event.is_object() || !event.contains("event")) {
            if (text.find('\n', end + 1) == std::string::npos) {
                break; // torn by a crash of the machine, which may leave any bytes
            }
            Fail(kCannotWrite, path,
                 Format("is damaged: line %zu is not an event.", lines.events.size() + 1),
                 "It cannot be trusted. Begin a new run in another folder.");
        }
        lines.events.push_back(std::move(event));
        at = end + 1;
    }
    lines.size = static_cast<int64_t>(at);
    return lines;
}

std::string ReadAll(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string LineOf(const Event& event) {
    return event.dump(-1, ' ', false, Event::error_handler_t::replace) + "\n";
}

} // namespace

Journal::Journal(const RunFolder& folder) : m_folder(folder), m_path(folder.Path() + "/" + kName) {
    m_file = ::openat(folder.Handle(), kName, O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, kFileMode);
    if (m_file == -1) {
        FailToWrite(m_path, errno);
    }
    try {
        Lines lines = ParseLines(m_path, ReadAll(m_path));
        m_events = std::move(lines.events);
        m_size = lines.size;
        if (::ftruncate(m_file, m_size) != 0 || ::fsync(m_file) != 0) {
            FailToWrite(m_path, errno);
        }
        folder.Sync();
    } catch (...) {
        ::close(m_file);
        throw;
    }
}

Journal::~Journal() {
    ::close(m_file);
}

void Journal::Append(const Event& event) {
    if (!m_folder.IsInPlace()) {
        Rescue();
    }
    const std::string line = LineOf(event);
    const ssize_t count = ::write(m_file, line.data(), line.size());
    int error = count < 0 ? errno : ENOSPC;
    const bool isWhole = count == static_cast<ssize_t>(line.size());
    if (!isWhole || ::fsync(m_file) != 0) {
        error = isWhole ? errno : error;
        if (::ftruncate(m_file, m_size) != 0) {
            error = errno; // a torn line stays; the next reader drops it
        }
        FailToWrite(m_path, error);
    }
    m_size += count;
    m_events.push_back(event);
    struct stat state {};
    if (::fstat(m_file, &state) != 0 || state.st_nlink == 0) {
        Rescue();
    }
}

// The journal is still in memory when its file or its folder was removed.
void Journal::Rescue() {
    struct stat state {};
    if (::fstat(m_file, &state) == 0 && state.st_nlink > 0) {
        Fail(kCannotWrite, m_folder.Path(), "was moved away while the run was under way.",
             "Its journal is complete: continue at its new place with --resume.");
    }
    if (FolderStays()) {
        m_folder.Replace(kName, Text());
        Fail(kCannotWrite, m_path, "was removed while the run was under way.",
             "It has been written again as a whole: continue with --resume.");
    }
    RunFolder(m_folder.Path(), false).Replace(kName, Text());
    Fail(kCannotWrite, m_folder.Path(), "was removed while the run was under way.",
         "It has been created again with the whole journal: continue with --resume.");
}

// A folder's files are removed before the folder itself.
bool Journal::FolderStays() const {
    const auto end = std::chrono::steady_clock::now() + kLongestRemoval;
    while (m_folder.IsInPlace() && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return m_folder.IsInPlace();
}

std::string Journal::Text() const {
    std::string text;
    for (const Event& event : m_events) {
        text += LineOf(event);
    }
    return text;
}

std::vector<Event> ReadJournal(const std::string& folder) {
    const std::string path = folder + "/" + Journal::kName;
    if (::access(path.c_str(), R_OK) != 0) {
        Fail(kMaterial, folder, "holds no readable journal of a run.",
             "Name the folder that was given to `ravo run --output`.");
    }
    return ParseLines(path, ReadAll(path)).events;
}

} // namespace lab
