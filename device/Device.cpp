#include "device/Device.h"

#include "platform/Platform.h"
#include "platform/SharedValue.h"
#include "platform/ThreadEnd.h"
#include "WFDB/Utils.h"

#include <aio.h>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <optional>
#include <poll.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

int64_t g_hDevice = -1;
uint32_t g_nDeviceReadTimeout = 1000;
uint32_t g_nDeviceWriteTimeout = 2000;
char g_szDevicePath[512];

namespace {

constexpr unsigned int kRetryPause = 10000; // microseconds
constexpr int kWritePiece = 64;
constexpr unsigned int kClosePatienceMilliseconds = 200;

// Held for the length of one system call that does not block, so that a transfer never uses a
// descriptor that another thread has closed and that the system has reused for another file.
std::mutex g_handleMutex;
uint32_t g_opening = 0; // guarded by g_handleMutex

template <size_t N>
void SetSharedText(char (&shared)[N], const char* text) {
    char padded[N] = {};
    memcpy(padded, text, strnlen(text, N - 1));
    StoreSharedBytes(shared, padded, N);
}

int CurrentDevice() {
    return static_cast<int>(LoadShared(g_hDevice));
}

// What an open port consists of, taken out of use.
struct OpenPort {
    int device; // -1 when there was none
    HeldLock lock;
};

// Takes everything at once, so that a thread that opens the next port does not lose that port's
// lock or path.
OpenPort ReleasePort(std::optional<uint32_t> opening) {
    const std::lock_guard<std::mutex> guard(g_handleMutex);
    const int device = CurrentDevice();
    if (device == -1 || (opening && *opening != g_opening)) {
        return {-1, {-1, ""}};
    }
    StoreShared(g_hDevice, -1);
    DeviceSetPath("");
    return {device, DetachLock()};
}

// One system call on the device; it fails when this is no longer the device in use.
template <typename Transfer>
ssize_t TransferOnce(int device, const Transfer& transfer) {
    const std::lock_guard<std::mutex> guard(g_handleMutex);
    if (CurrentDevice() != device) {
        errno = EBADF;
        return -1;
    }
    return transfer();
}

// When a call's time is up.  Milliseconds become microseconds in 32 bits, so a time-out of
// 0xFFFFFFFF is 4294.966296 s and no wait is endless.
class Deadline {
  public:
    explicit Deadline(uint32_t microseconds)
        : m_end(Clock::now() + std::chrono::microseconds(microseconds)) {}

    static Deadline FromMilliseconds(uint32_t milliseconds) {
        return Deadline(milliseconds * 1000U);
    }

    std::chrono::nanoseconds Remaining() const {
        return std::max<std::chrono::nanoseconds>(m_end - Clock::now(),
                                                  std::chrono::nanoseconds::zero());
    }
    bool HasPassed() const { return Remaining() == std::chrono::nanoseconds::zero(); }

  private:
    using Clock = std::chrono::steady_clock;
    Clock::time_point m_end;
};

// Returns 1 when the next transfer will not block (it may fail), 0 at the deadline, -1 when the
// descriptor is not open.
int WaitUntilReady(int descriptor, short direction, const Deadline& deadline) {
    for (;;) {
        const auto remaining = deadline.Remaining();
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(remaining);
        timespec timeout{};
        timeout.tv_sec = seconds.count();
        timeout.tv_nsec = (remaining - seconds).count();

        pollfd request{};
        request.fd = descriptor;
        request.events = direction;
        const int result = ppoll(&request, 1, &timeout, nullptr);
        if (result == -1 && errno == EINTR) {
            continue;
        }
        return (request.revents & POLLNVAL) != 0 ? -1 : result;
    }
}

// Pauses after an attempt that transferred nothing.  Returns false when the deadline leaves no time
// for another.
bool PauseBeforeRetry(const Deadline& deadline) {
    if (deadline.HasPassed()) {
        return false;
    }
    SleepMicroseconds(kRetryPause);
    return true;
}

bool HasPendingOutput(int descriptor) {
    int pending = 0;
    return ioctl(descriptor, TIOCOUTQ, &pending) == 0 && pending > 0;
}

// A close waits up to 30 s for output that the device does not accept.
void DiscardStuckOutput(int descriptor) {
    const Deadline deadline = Deadline::FromMilliseconds(100);
    while (HasPendingOutput(descriptor)) {
        if (!PauseBeforeRetry(deadline)) {
            tcflush(descriptor, TCOFLUSH);
            return;
        }
    }
}

void* CloseOnItsOwnThread(void* descriptor) {
    CloseHandle(static_cast<long>(reinterpret_cast<intptr_t>(descriptor)));
    return nullptr;
}

// Whether `descriptor` is still the file described by `port`.  A close frees the number before it
// waits, and another thread may have received it since.
bool IsStillOpen(int descriptor, const struct stat& port) {
    struct stat now {};
    return fstat(descriptor, &now) == 0 && now.st_dev == port.st_dev && now.st_ino == port.st_ino;
}

// Some drivers, cdc_acm among them, cannot discard output.  There only a signal to the closing
// thread ends the kernel's wait, and the signal of a thread's cancellation needs no handler.  It is
// sent once the close is under way; sent earlier, it would leave the port open.
void CloseInTime(int device) {
    struct stat port {};
    unsigned long closer = 0;
    if (!HasPendingOutput(device) || fstat(device, &port) != 0 ||
        !CreateThread(&closer, CloseOnItsOwnThread, reinterpret_cast<void*>(intptr_t{device}))) {
        CloseHandle(device);
        return;
    }
    while (!JoinThreadWithin(closer, kClosePatienceMilliseconds)) {
        if (!IsStillOpen(device, port)) {
            pthread_cancel(closer);
        }
    }
}

// Two threads may release the device at once; the one that takes the handle closes it.
void Close(const OpenPort& port) {
    if (port.device == -1) {
        return;
    }
    // Without the lock the line, and the output pending on it, may belong to another host.
    if (port.lock.file != -1) {
        DiscardStuckOutput(port.device);
    }
    ReleaseLock(port.lock);
    CloseInTime(port.device);
}

struct PipeCloser {
    void operator()(FILE* pipe) const { pclose(pipe); }
};

bool ReadLine(FILE* file, char* line, int size) {
    while (fgets(line, size, file) == nullptr) {
        if (feof(file) != 0 || errno != EINTR) {
            return false;
        }
        clearerr(file);
    }
    return true;
}

} // namespace

void DeviceUse(int descriptor) {
    const std::lock_guard<std::mutex> guard(g_handleMutex);
    StoreShared(g_hDevice, descriptor);
    ++g_opening;
}

uint32_t DeviceOpening() {
    const std::lock_guard<std::mutex> guard(g_handleMutex);
    return g_opening;
}

void DeviceClose() {
    Close(ReleasePort(std::nullopt));
}

void DeviceCloseOpening(uint32_t opening) {
    Close(ReleasePort(opening));
}

void DeviceSetPath(const char* path) {
    SetSharedText(g_szDevicePath, path);
}

bool DeviceIsAlive() {
    // In an empty environment: the host's might prevent the shell from expanding the name, or make
    // ls quote it.
    const std::unique_ptr<FILE, PipeCloser> ports(
        popen("exec /usr/bin/env -i /bin/sh -c '/bin/ls /dev/ttyACM* 2>/dev/null'", "re"));
    if (ports == nullptr) {
        return false;
    }
    char line[512];
    while (ReadLine(ports.get(), line, sizeof line)) {
        StringTrim(line);
        if (DeviceCheckPath(line)) {
            return true;
        }
    }
    return false;
}

bool DeviceIsHungUp() {
    const int device = CurrentDevice();
    pollfd state{device, 0, 0};
    return TransferOnce(device, [&] { return poll(&state, 1, 0); }) == 1 &&
           (state.revents & POLLHUP) != 0;
}

bool DeviceIsConnected() {
    return LoadShared(g_hDevice) != -1;
}

bool DeviceIsIdentified() {
    return LoadShared(g_szDevicePath[0]) != '\0';
}

bool DeviceCheckPath(const char* path) {
    char devicePath[sizeof g_szDevicePath];
    LoadSharedBytes(devicePath, g_szDevicePath, sizeof devicePath);
    return path != nullptr && devicePath[0] != '\0' && strcmp(path, devicePath) == 0;
}

int DeviceCancelIO() {
    return aio_cancel(CurrentDevice(), nullptr);
}

int DeviceSetTimeoutSetting(unsigned int readTimeout, unsigned int writeTimeout) {
    // Unlike in the transfers, 0xFFFFFFFF is taken as it is, in microseconds.
    auto toMicroseconds = [](uint32_t milliseconds) {
        return milliseconds == UINT32_MAX ? milliseconds : milliseconds * 1000U;
    };
    StoreShared(g_nDeviceReadTimeout, readTimeout);
    StoreShared(g_nDeviceWriteTimeout, writeTimeout);

    const int device = CurrentDevice();
    if (device == -1) {
        return -1;
    }
    WaitUntilReady(device, POLLIN, Deadline(toMicroseconds(readTimeout)));
    return WaitUntilReady(device, POLLOUT, Deadline(toMicroseconds(writeTimeout)));
}

int DeviceReadData(unsigned char* buffer, int length) {
    const int device = CurrentDevice();
    if (device == -1) {
        return 0;
    }
    const Deadline deadline = Deadline::FromMilliseconds(LoadShared(g_nDeviceReadTimeout));
    int total = 0;
    while (total < length) {
        if (WaitUntilReady(device, POLLIN, deadline) <= 0) {
            return total == 0 ? -1 : total;
        }
        const auto missing = static_cast<size_t>(length - total);
        const ssize_t count =
            TransferOnce(device, [&] { return read(device, buffer + total, missing); });
        if (count > 0) {
            total += static_cast<int>(count);
        } else if (count == 0 || errno == EAGAIN) {
            // A port that has been hung up stays readable but delivers no bytes.
            if (!PauseBeforeRetry(deadline)) {
                return total == 0 ? -1 : total;
            }
        } else if (errno != EINTR) {
            return total;
        }
    }
    return total;
}

int DeviceWriteData(unsigned char* buffer, int length, int /*ignored*/) {
    const int device = CurrentDevice();
    if (device == -1) {
        return 0;
    }
    const Deadline deadline = Deadline::FromMilliseconds(LoadShared(g_nDeviceWriteTimeout));
    int total = 0;
    while (total < length) {
        if (WaitUntilReady(device, POLLOUT, deadline) <= 0) {
            return 0;
        }
        const auto piece = static_cast<size_t>(std::min(kWritePiece, length - total));
        const ssize_t count =
            TransferOnce(device, [&] { return write(device, buffer + total, piece); });
        if (count == -1 && errno == EINTR) {
            continue;
        }
        if (count == -1) {
            return total;
        }
        total += static_cast<int>(count);
        // Compatibility: errno is examined although the write succeeded, so that an EAGAIN left by
        // an earlier call slows the writing down.  Nothing is known to rely on that pace.
        if (errno == EAGAIN) {
            SleepMicroseconds(kRetryPause);
        }
        if (count == 0 && !PauseBeforeRetry(deadline)) {
            return 0;
        }
    }
    return total;
}
