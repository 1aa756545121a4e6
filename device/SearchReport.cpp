#include "device/SearchReport.h"

#include "platform/LastError.h"
#include "platform/Unload.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <unistd.h>

namespace {

constexpr size_t kMostEntries = 128;

struct Round {
    std::array<RAVO_SEARCH_ENTRY, kMostEntries> entries;
    size_t count = 0;
    bool hasEnded = false;
};

std::mutex g_reportMutex; // held only for copying
Round g_current;          // used by the searching thread only
Round g_last;             // guarded by g_reportMutex

bool IsControl(char character) {
    return (character >= '\0' && character < ' ') || character == '\x7F';
}

// The program's name as the system reports it, without the control characters that the program may
// have put there; may be empty.
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
    std::replace_if(name, name + strlen(name), IsControl, '?');
}

// "4D 4F 44", followed by the same bytes as text where they are printable.
void QuoteAnswer(const RAVO_SEARCH_ENTRY& entry, char (&quoted)[96]) {
    char bytes[3 * sizeof entry.Answer + 1] = "";
    char letters[sizeof entry.Answer + 1] = "";
    for (uint32_t i = 0; i < entry.AnswerSize && i < sizeof entry.Answer; ++i) {
        const unsigned char byte = entry.Answer[i];
        snprintf(bytes + strlen(bytes), 4, i == 0 ? "%02X" : " %02X", byte);
        letters[i] = byte >= ' ' && byte < 0x7F ? static_cast<char>(byte) : '.';
    }
    snprintf(quoted, sizeof quoted, "%s (\"%s\")", bytes, letters);
}

void DescribeOwner(const RAVO_SEARCH_ENTRY& entry, char* text, size_t size) {
    if (entry.Owner <= 0) {
        snprintf(text, size, "its lock file says that it is in use, but not by whom");
    } else if (entry.Owner == getpid()) {
        snprintf(text, size, "this process still holds its lock");
    } else {
        snprintf(text, size, "held by process %d%s%s%s", entry.Owner,
                 entry.OwnerName[0] == '\0' ? "" : " (", entry.OwnerName,
                 entry.OwnerName[0] == '\0' ? "" : ")");
    }
}

// A lock that may not be read is most likely held by another user; one that names no process is
// damaged.
void DescribeUnreadableLock(const RAVO_SEARCH_ENTRY& entry, char* text, size_t size) {
    if (entry.SystemError == EACCES) {
        snprintf(text, size, "its lock file in /var/lock cannot be read: Permission denied");
    } else {
        snprintf(text, size, "its lock file in /var/lock names no process and is never removed");
    }
}

const char* Plain(int32_t finding) {
    switch (finding) {
    case RAVO_FINDING_SIMULATOR:
        return "the simulator";
    case RAVO_FINDING_ABSENT:
        return "there is no such port";
    case RAVO_FINDING_EXCLUSIVE:
        return "another program has opened it exclusively";
    case RAVO_FINDING_NO_LOCK_DIRECTORY:
        return "the lock directory /var/lock is missing";
    case RAVO_FINDING_CANNOT_WRITE:
        return "it takes no bytes";
    case RAVO_FINDING_NO_ANSWER:
        return "the device does not answer";
    case RAVO_FINDING_LOST:
        return "it disappeared while it was being asked";
    case RAVO_FINDING_NO_FLASH_TABLE:
        return "a simulator that sent no flash table: taken for an older 12-bit unit";
    default:
        return "";
    }
}

void DescribeFinding(const RAVO_SEARCH_ENTRY& entry, char* text, size_t size) {
    char quoted[96] = "";
    char reason[64] = "";
    switch (entry.Finding) {
    case RAVO_FINDING_CANNOT_OPEN:
        snprintf(text, size, "cannot be opened: %s",
                 strerror_r(entry.SystemError, reason, sizeof reason));
        break;
    case RAVO_FINDING_LOCK_REFUSED:
        snprintf(text, size, "its lock file cannot be made in /var/lock: %s",
                 strerror_r(entry.SystemError, reason, sizeof reason));
        break;
    case RAVO_FINDING_LOCKED:
        DescribeOwner(entry, text, size);
        break;
    case RAVO_FINDING_LOCK_UNREADABLE:
        DescribeUnreadableLock(entry, text, size);
        break;
    case RAVO_FINDING_FOREIGN_ANSWER:
        QuoteAnswer(entry, quoted);
        snprintf(text, size, "another device answers: %s", quoted);
        break;
    default:
        snprintf(text, size, "%s", Plain(entry.Finding));
        break;
    }
}

void Describe(RAVO_SEARCH_ENTRY& entry) {
    char finding[sizeof entry.Text - 32] = "";
    DescribeFinding(entry, finding, sizeof finding);
    snprintf(entry.Text, sizeof entry.Text, "/dev/ttyACM%d: %s", entry.Port, finding);
}

RAVO_ERROR ReasonOf(int32_t finding) {
    switch (finding) {
    case RAVO_FINDING_EXCLUSIVE:
    case RAVO_FINDING_LOCKED:
        return RAVO_ERROR_BUSY;
    case RAVO_FINDING_CANNOT_WRITE:
    case RAVO_FINDING_NO_ANSWER:
        return RAVO_ERROR_SILENT;
    case RAVO_FINDING_FOREIGN_ANSWER:
        return RAVO_ERROR_NOT_IDENTIFIED;
    case RAVO_FINDING_CANNOT_OPEN:
    case RAVO_FINDING_LOCK_UNREADABLE:
    case RAVO_FINDING_NO_LOCK_DIRECTORY:
    case RAVO_FINDING_LOCK_REFUSED:
        return RAVO_ERROR_SYSTEM;
    default:
        return RAVO_ERROR_NOT_CONNECTED;
    }
}

// A higher weight explains better why no simulator was found: a silent device may be anything, but
// a port that is held or refused may well be the simulator.
int Weight(const RAVO_SEARCH_ENTRY& entry) {
    switch (ReasonOf(entry.Finding)) {
    case RAVO_ERROR_BUSY:
        return 3;
    case RAVO_ERROR_SYSTEM:
        return 2;
    case RAVO_ERROR_NOT_CONNECTED:
        return 0;
    default:
        return 1;
    }
}

bool IsSimulator(const RAVO_SEARCH_ENTRY& entry) {
    return entry.Finding == RAVO_FINDING_SIMULATOR || entry.Finding == RAVO_FINDING_NO_FLASH_TABLE;
}

} // namespace

void ForgetSearchRounds() {
    const std::lock_guard<std::mutex> guard(g_reportMutex);
    g_last.count = 0;
    g_last.hasEnded = false;
}

void BeginSearchRound() {
    g_current.count = 0;
}

void NoteProbe(RAVO_SEARCH_ENTRY entry) {
    NameProcess(entry.Owner, entry.OwnerName);
    Describe(entry);
    if (g_current.count < g_current.entries.size()) {
        g_current.entries[g_current.count++] = entry;
    }
}

void EndSearchRound() {
    const std::lock_guard<std::mutex> guard(g_reportMutex);
    g_last = g_current;
    g_last.hasEnded = true;
}

void NoteFlashTable(bool isThere) {
    const std::lock_guard<std::mutex> guard(g_reportMutex);
    const auto end = g_last.entries.begin() + static_cast<ptrdiff_t>(g_last.count);
    const auto found = std::find_if(g_last.entries.begin(), end, IsSimulator);
    if (found != end) {
        found->Finding = isThere ? RAVO_FINDING_SIMULATOR : RAVO_FINDING_NO_FLASH_TABLE;
        Describe(*found);
    }
}

void SetSearchFailure() {
    const std::lock_guard<std::mutex> guard(g_reportMutex);
    const auto end = g_last.entries.begin() + static_cast<ptrdiff_t>(g_last.count);
    const auto telling =
        std::max_element(g_last.entries.begin(), end, [](const auto& left, const auto& right) {
            return Weight(left) < Weight(right);
        });
    if (telling != end && IsSimulator(*telling)) {
        SetLastFailure(RAVO_ERROR_NOT_CONNECTED, "%s, found too late or lost again", telling->Text);
    } else if (telling != end) {
        SetLastFailure(ReasonOf(telling->Finding), "no simulator: %s", telling->Text);
    } else if (g_last.hasEnded) {
        SetLastFailure(RAVO_ERROR_NOT_CONNECTED,
                       "no simulator: there is no port /dev/ttyACM0 to /dev/ttyACM127");
    } else {
        SetLastFailure(RAVO_ERROR_NOT_CONNECTED, "no port could be asked in so short a time");
    }
}

bool RAVOGetSearchReport(int index, RAVO_SEARCH_ENTRY* entry) {
    if (entry == nullptr || index < 0) {
        SetLastFailure(RAVO_ERROR_ARGUMENT, "RAVOGetSearchReport: %s",
                       entry == nullptr ? "no entry to fill" : "an index below 0");
        return false;
    }
    if (!RequireLoadingProcess()) {
        return false; // the lock may have been held at the fork
    }
    const std::lock_guard<std::mutex> guard(g_reportMutex);
    if (!g_last.hasEnded) {
        SetLastFailure(RAVO_ERROR_END, "no round of a search has finished yet");
        return false;
    }
    if (static_cast<size_t>(index) >= g_last.count) {
        SetLastFailure(RAVO_ERROR_END, "the last search found %zu ports", g_last.count);
        return false;
    }
    *entry = g_last.entries[static_cast<size_t>(index)];
    return true;
}
