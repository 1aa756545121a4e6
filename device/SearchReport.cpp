#include "device/SearchReport.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <unistd.h>

namespace {

constexpr size_t kMostEntries = 128;

struct Round {
    std::array<SearchEntry, kMostEntries> entries;
    size_t count = 0;
};

std::mutex g_reportMutex; // held only for copying
Round g_current;          // of the searching thread
Round g_last;             // guarded by g_reportMutex

// The program's name as the system has it, or an empty text.
void NameProcess(int32_t process, char (&name)[32]) {
    char path[64];
    snprintf(path, sizeof path, "/proc/%d/comm", process);
    const int file = process > 0 ? open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY) : -1;
    if (file == -1) {
        return;
    }
    const ssize_t length = read(file, name, sizeof name - 1);
    close(file);
    name[std::max<ssize_t>(length, 0)] = '\0';
    name[strcspn(name, "\n")] = '\0';
}

// "4D 4F 44", and the same as text where it is one.
void QuoteAnswer(const SearchEntry& entry, char (&quoted)[96]) {
    char bytes[3 * sizeof entry.answer + 1] = "";
    char letters[sizeof entry.answer + 1] = "";
    for (uint32_t i = 0; i < entry.answerLength && i < sizeof entry.answer; ++i) {
        const unsigned char byte = entry.answer[i];
        snprintf(bytes + strlen(bytes), 4, i == 0 ? "%02X" : " %02X", byte);
        letters[i] = byte >= ' ' && byte < 0x7F ? static_cast<char>(byte) : '.';
    }
    snprintf(quoted, sizeof quoted, "%s (\"%s\")", bytes, letters);
}

void DescribeOwner(const SearchEntry& entry, char* text, size_t size) {
    if (entry.owner <= 0) {
        snprintf(text, size, "its lock file says that it is in use, but not by whom");
    } else if (entry.owner == getpid()) {
        snprintf(text, size, "this process still holds its lock");
    } else {
        snprintf(text, size, "held by process %d%s%s%s", entry.owner,
                 entry.ownerName[0] == '\0' ? "" : " (", entry.ownerName,
                 entry.ownerName[0] == '\0' ? "" : ")");
    }
}

const char* Plain(ProbeFinding finding) {
    switch (finding) {
    case ProbeFinding::kSimulator:
        return "the simulator";
    case ProbeFinding::kAbsent:
        return "there is no such port";
    case ProbeFinding::kExclusive:
        return "another program has opened it for itself alone";
    case ProbeFinding::kLockUnreadable:
        return "its lock file in /var/lock names no process and is never removed";
    case ProbeFinding::kNoLockDirectory:
        return "the lock directory /var/lock is missing";
    case ProbeFinding::kCannotWrite:
        return "it takes no bytes";
    case ProbeFinding::kNoAnswer:
        return "nobody answers";
    case ProbeFinding::kLost:
        return "it went away while it was asked";
    case ProbeFinding::kNoFlashTable:
        return "a simulator that sent no flash table: taken for an older 12-bit unit";
    default:
        return "";
    }
}

void DescribeFinding(const SearchEntry& entry, char* text, size_t size) {
    char quoted[96] = "";
    char reason[64] = "";
    switch (entry.finding) {
    case ProbeFinding::kCannotOpen:
        snprintf(text, size, "cannot be opened: %s",
                 strerror_r(entry.systemError, reason, sizeof reason));
        break;
    case ProbeFinding::kLockRefused:
        snprintf(text, size, "its lock file cannot be made in /var/lock: %s",
                 strerror_r(entry.systemError, reason, sizeof reason));
        break;
    case ProbeFinding::kLocked:
        DescribeOwner(entry, text, size);
        break;
    case ProbeFinding::kForeignAnswer:
        QuoteAnswer(entry, quoted);
        snprintf(text, size, "another device answers: %s", quoted);
        break;
    default:
        snprintf(text, size, "%s", Plain(entry.finding));
        break;
    }
}

void Describe(SearchEntry& entry) {
    char finding[sizeof entry.text - 32] = "";
    DescribeFinding(entry, finding, sizeof finding);
    snprintf(entry.text, sizeof entry.text, "/dev/ttyACM%d: %s", entry.port, finding);
}

SearchResult ResultOf(ProbeFinding finding) {
    switch (finding) {
    case ProbeFinding::kSimulator:
    case ProbeFinding::kNoFlashTable:
        return SearchResult::kFound;
    case ProbeFinding::kAbsent:
    case ProbeFinding::kLost:
        return SearchResult::kNotConnected;
    case ProbeFinding::kCannotWrite:
    case ProbeFinding::kNoAnswer:
    case ProbeFinding::kForeignAnswer:
        return SearchResult::kNotIdentified;
    case ProbeFinding::kExclusive:
    case ProbeFinding::kLocked:
        return SearchResult::kBusy;
    default:
        return SearchResult::kRefused;
    }
}

bool IsSimulator(const SearchEntry& entry) {
    return ResultOf(entry.finding) == SearchResult::kFound;
}

} // namespace

void BeginSearchRound() {
    g_current.count = 0;
}

void NoteProbe(SearchEntry entry) {
    NameProcess(entry.owner, entry.ownerName);
    Describe(entry);
    if (g_current.count < g_current.entries.size()) {
        g_current.entries[g_current.count++] = entry;
    }
}

void EndSearchRound() {
    const std::lock_guard<std::mutex> guard(g_reportMutex);
    g_last = g_current;
}

void NoteFlashTable(bool isThere) {
    const std::lock_guard<std::mutex> guard(g_reportMutex);
    const auto end = g_last.entries.begin() + static_cast<ptrdiff_t>(g_last.count);
    const auto found = std::find_if(g_last.entries.begin(), end, IsSimulator);
    if (found != end) {
        found->finding = isThere ? ProbeFinding::kSimulator : ProbeFinding::kNoFlashTable;
        Describe(*found);
    }
}

bool GetSearchEntry(size_t index, SearchEntry& entry) {
    const std::lock_guard<std::mutex> guard(g_reportMutex);
    if (index >= g_last.count) {
        return false;
    }
    entry = g_last.entries[index];
    return true;
}

SearchResult SummariseSearch(int port, char* text, size_t size) {
    if (port == -1) {
        snprintf(text, size, "there is no port /dev/ttyACM0 to /dev/ttyACM127");
    } else {
        snprintf(text, size, "/dev/ttyACM%d has not been asked", port);
    }
    SearchResult result = SearchResult::kNotConnected;
    SearchEntry entry;
    for (size_t index = 0; GetSearchEntry(index, entry); ++index) {
        const SearchResult candidate = ResultOf(entry.finding);
        if (index == 0 || candidate > result) {
            snprintf(text, size, "%s", entry.text);
            result = candidate;
        }
    }
    return result;
}
