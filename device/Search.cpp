#include "device/Search.h"

#include "device/Device.h"
#include "device/Protocol.h"
#include "platform/Platform.h"
#include "platform/SharedValue.h"

#include <cstdio>
#include <fcntl.h>
#include <termios.h>

namespace {

constexpr int kPorts = 128;

// Attributes not named here stay as the system has them, VMIN, VTIME and the input speed included.
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

// What the device held from before it was opened can stand in front of its reply.  The reply, still
// on its way, would then do the same to the next round, so it is awaited and thrown away.
void DiscardLateReply(int descriptor) {
    constexpr unsigned int kReplyTime = 50000; // microseconds
    SleepMicroseconds(kReplyTime);
    if (LoadShared(g_hDevice) == descriptor) {
        tcflush(descriptor, TCIFLUSH);
    }
}

// The monitor, late with an earlier loss, may have closed the port under our hands; the lock, taken
// after that, would then stay behind.
bool GiveUp() {
    DeviceClose();
    UnlockDevice();
    DeviceSetPath("");
    return false;
}

} // namespace

bool DoFindDevice(int port) {
    char path[sizeof g_szDevicePath];
    snprintf(path, sizeof path, "/dev/ttyACM%d", port);
    const int descriptor = open(path, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    DeviceUse(descriptor);
    if (descriptor == -1) {
        return false;
    }
    if (!LockDevice(port)) {
        return GiveUp();
    }
    DeviceCancelIO();
    ConfigureLine(descriptor);
    if (!IsTargetDevice()) {
        DiscardLateReply(descriptor);
        return GiveUp();
    }
    DeviceSetPath(path);
    return LoadShared(g_hDevice) == descriptor || GiveUp();
}

bool FindDevice(int port) {
    if (port != -1) {
        return DoFindDevice(port);
    }
    for (int candidate = 0; candidate < kPorts; ++candidate) {
        if (DoFindDevice(candidate)) {
            return true;
        }
    }
    return false;
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
