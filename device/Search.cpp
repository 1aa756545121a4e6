#include "device/Search.h"

#include "device/Device.h"
#include "device/Protocol.h"
#include "device/SearchReport.h"
#include "platform/Platform.h"
#include "platform/SharedValue.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

namespace {

constexpr int kPorts = 128;

void PathOf(int port, char (&path)[sizeof g_szDevicePath]) {
    snprintf(path, sizeof path, "/dev/ttyACM%d", port);
}

bool IsThere(int port) {
    char path[sizeof g_szDevicePath];
    PathOf(port, path);
    return access(path, F_OK) == 0;
}

// Attributes not named here keep the system's values, including VMIN, VTIME and the input speed.
void ConfigureLine(int descriptor) {
    termios attributes{};
    tcgetattr(descriptor, &attributes);
    attributes.c_cflag &= ~static_cast<tcflag_t>(CLOCAL);
    attributes.c_iflag |= IGNPAR;
    attributes.c_iflag &= ~static_cast<tcflag_t>(ICRNL | IXON);
    attributes.c_oflag &= ~static_cast<tcflag_t>(OPOST | ONLCR);
    attributes.c_lflag = 0;
    attributes.c_cc[VEOF] = 4;
    cfsetospeed(&attributes, B115200);
    tcsetattr(descriptor, TCSANOW, &attributes);
}

// Input left from before the port was opened can precede the reply.  Wait for the reply and discard
// it; otherwise it would precede the reply of the next round.
void DiscardLateReply(int descriptor) {
    constexpr unsigned int kReplyTime = 50000; // microseconds
    SleepMicroseconds(kReplyTime);
    if (LoadShared(g_hDevice) == descriptor) {
        tcflush(descriptor, TCIFLUSH);
    }
}

void Note(int port, RAVO_FINDING finding, int error = 0) {
    RAVO_SEARCH_ENTRY entry{};
    entry.Port = port;
    entry.Finding = finding;
    entry.SystemError = error;
    NoteProbe(entry);
}

void NoteOpening(int port, int error) {
    if (error == ENOENT || error == ENXIO || error == ENODEV) {
        Note(port, RAVO_FINDING_ABSENT, error);
    } else {
        Note(port, error == EBUSY ? RAVO_FINDING_EXCLUSIVE : RAVO_FINDING_CANNOT_OPEN, error);
    }
}

RAVO_FINDING FindingOf(LockOutcome outcome) {
    switch (outcome) {
    case LockOutcome::kHeld:
        return RAVO_FINDING_LOCKED;
    case LockOutcome::kUnreadable:
        return RAVO_FINDING_LOCK_UNREADABLE;
    case LockOutcome::kNoDirectory:
        return RAVO_FINDING_NO_LOCK_DIRECTORY;
    default:
        return RAVO_FINDING_LOCK_REFUSED;
    }
}

void NoteLock(int port, const LockAttempt& attempt) {
    RAVO_SEARCH_ENTRY entry{};
    entry.Port = port;
    entry.Finding = FindingOf(attempt.outcome);
    entry.SystemError = attempt.error;
    entry.Owner = attempt.owner;
    NoteProbe(entry);
}

void NoteAnswer(int port, const IdentityAnswer& answer) {
    RAVO_SEARCH_ENTRY entry{};
    entry.Port = port;
    if (!answer.isAsked) {
        entry.Finding = RAVO_FINDING_CANNOT_WRITE;
    } else {
        entry.Finding = answer.length == 0 ? RAVO_FINDING_NO_ANSWER : RAVO_FINDING_FOREIGN_ANSWER;
    }
    entry.AnswerSize = static_cast<uint32_t>(answer.length);
    std::copy_n(answer.bytes, answer.length, entry.Answer);
    NoteProbe(entry);
}

// A thread that closed the port during the probe did not release a lock taken afterwards.
bool GiveUp() {
    DeviceClose();
    UnlockDevice();
    DeviceSetPath("");
    return false;
}

bool IsStillOpen(int descriptor) {
    return LoadShared(g_hDevice) == descriptor;
}

// The port is open and locked; whether it is the simulator's.
bool Identify(int port, int descriptor) {
    DeviceCancelIO();
    ConfigureLine(descriptor);
    const IdentityAnswer answer = AskIdentity();
    if (answer.isTheSimulators) {
        return true;
    }
    if (!IsStillOpen(descriptor) || !IsThere(port)) {
        Note(port, RAVO_FINDING_LOST);
    } else {
        NoteAnswer(port, answer);
    }
    DiscardLateReply(descriptor);
    return false;
}

// Looks for the simulator on the port and records why it was not found.
bool ProbePort(int port) {
    char path[sizeof g_szDevicePath];
    PathOf(port, path);
    const int descriptor = open(path, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    const int error = errno;
    DeviceUse(descriptor);
    if (descriptor == -1) {
        NoteOpening(port, error);
        return false;
    }
    const LockAttempt lock = TryLockDevice(port);
    if (lock.outcome != LockOutcome::kTaken) {
        NoteLock(port, lock);
        return GiveUp();
    }
    if (!Identify(port, descriptor)) {
        return GiveUp();
    }
    DeviceSetPath(path);
    Note(port, IsStillOpen(descriptor) ? RAVO_FINDING_SIMULATOR : RAVO_FINDING_LOST);
    return IsStillOpen(descriptor) || GiveUp();
}

bool ProbeAllPorts() {
    for (int candidate = 0; candidate < kPorts; ++candidate) {
        if (IsThere(candidate) && ProbePort(candidate)) {
            return true;
        }
    }
    return false;
}

} // namespace

bool DoFindDevice(int port) {
    BeginSearchRound();
    const bool found = ProbePort(port);
    EndSearchRound();
    return found;
}

bool FindDevice(int port) {
    if (port != -1) {
        return DoFindDevice(port);
    }
    BeginSearchRound();
    const bool found = ProbeAllPorts();
    EndSearchRound();
    return found;
}

bool DeviceConnect(int port, int attempts) {
    constexpr unsigned int kPause = 1000000; // microseconds
    for (int attempt = 0; attempt < attempts; ++attempt) {
        if (FindDevice(port)) {
            return true;
        }
        SleepMicroseconds(kPause);
    }
    return false;
}
