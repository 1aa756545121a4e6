#include "tools/emulator/usb/AcmDevice.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace emulator::usb {
namespace {

// Vendor and product ids are those that pid.codes reserves for tests.
constexpr std::array<std::uint8_t, 18> kDeviceDescriptor = {
    18, 1, 0x00, 0x02, 2, 0, 0, 64, 0x09, 0x12, 0x01, 0x00, 0x00, 0x01, 0, 0, 0, 1};

constexpr std::uint8_t kToHost = 0x80; // of an endpoint's address
constexpr std::uint8_t kBulkEndpoint = 1;
constexpr std::uint8_t kNoticeEndpoint = 2;

constexpr std::array<std::uint8_t, 67> kConfiguration = {
    9,    2,    67,
    0,    2,    1,
    0,    0x80, 50, // two interfaces, 100 mA
    9,    4,    0,
    0,    1,    2,
    2,    0,    0, // control: abstract control model
    5,    0x24, 0,
    0x10, 0x01, // release 1.10
    5,    0x24, 1,
    0,    1, // no call management
    4,    0x24, 2,
    2, // line coding and line state
    5,    0x24, 6,
    0,    1, // interface 0 controls interface 1
    7,    5,    kToHost | kNoticeEndpoint,
    3,    16,   0,
    2, // interrupt, every 2 ms
    9,    4,    1,
    0,    2,    10,
    0,    0,    0, // data
    7,    5,    kBulkEndpoint,
    2,    64,   0,
    0, // bulk, from the host
    7,    5,    kToHost | kBulkEndpoint,
    2,    64,   0,
    0, // bulk, to the host
};

enum Descriptor : std::uint8_t { kDevice = 1, kConfigurations = 2 };

// The type and number of a request, combined.
constexpr unsigned Request(std::uint8_t type, std::uint8_t number) {
    return type * 256U + number;
}
constexpr unsigned kGetDescriptor = Request(0x80, 6);
constexpr unsigned kGetStatus = Request(0x80, 0);
constexpr unsigned kSetConfiguration = Request(0x00, 9);
constexpr unsigned kSetInterface = Request(0x01, 11);
constexpr unsigned kClearHalt = Request(0x02, 1);
constexpr unsigned kSetLineCoding = Request(0x21, 0x20);
constexpr unsigned kSetLineState = Request(0x21, 0x22);
constexpr unsigned kSendBreak = Request(0x21, 0x23);

constexpr std::uint8_t kTerminalReady = 1; // state of the line as set by the host
constexpr std::uint8_t kCarrier = 1;       // state of the line as reported by the device

int MakeEvent() {
    const int event = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (event == -1) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    return event;
}

void Set(int event) {
    eventfd_write(event, 1);
}

void Clear(int event) {
    eventfd_t count = 0;
    eventfd_read(event, &count);
}

bool Erase(std::deque<Transfer>& transfers, std::uint32_t number) {
    const auto found =
        std::find_if(transfers.begin(), transfers.end(),
                     [&](const Transfer& transfer) { return transfer.number == number; });
    const bool isThere = found != transfers.end();
    if (isThere) {
        transfers.erase(found);
    }
    return isThere;
}

} // namespace

AcmDevice::AcmDevice(int socket)
    : m_socket(socket), m_link(socket), m_arrivals(MakeEvent()), m_changes(MakeEvent()) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &before);
    m_thread = std::thread(&AcmDevice::Serve, this);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

AcmDevice::~AcmDevice() {
    Unplug();
    m_thread.join();
    close(m_socket);
    close(m_arrivals);
    close(m_changes);
}

void AcmDevice::Unplug() {
    shutdown(m_socket, SHUT_RDWR);
}

bool AcmDevice::IsOpen() const {
    const lab::MutexGuard lock(m_mutex);
    return m_isOpen;
}

std::size_t AcmDevice::Take(std::uint8_t* bytes, std::size_t length) {
    const lab::MutexGuard lock(m_mutex);
    std::size_t done = 0;
    while (done < length && !m_fromHost.empty()) {
        const Transfer& first = m_fromHost.front();
        const std::size_t now = std::min(length - done, first.data.size() - m_taken);
        std::copy_n(first.data.data() + m_taken, now, bytes + done);
        done += now;
        m_taken += now;
        if (m_taken == first.data.size()) {
            m_link.End(first, kDone, nullptr, first.data.size());
            m_fromHost.pop_front();
            m_taken = 0;
        }
    }
    MarkArrivals();
    return done;
}

std::size_t AcmDevice::Give(const std::uint8_t* bytes, std::size_t length) {
    const lab::MutexGuard lock(m_mutex);
    std::size_t done = 0;
    while (done < length && !m_toHost.empty()) {
        const Transfer& room = m_toHost.front();
        const std::size_t now = std::min<std::size_t>(length - done, room.length);
        m_link.End(room, kDone, bytes + done, now);
        m_toHost.pop_front();
        done += now;
    }
    return done;
}

void AcmDevice::DropCarrier() {
    const lab::MutexGuard lock(m_mutex);
    m_notices.push_back(kCarrier);
    m_notices.push_back(0);
    Notify();
}

void AcmDevice::Serve() {
    Message message;
    while (m_link.Receive(message)) {
        const lab::MutexGuard lock(m_mutex);
        if (message.isUnlink) {
            TakeBack(message);
        } else {
            Begin(std::move(message.transfer));
        }
    }
    const lab::MutexGuard lock(m_mutex);
    SetOpen(false);
}

void AcmDevice::Begin(Transfer transfer) {
    if (transfer.endpoint == 0) {
        Control(transfer);
    } else if (!transfer.isToHost) {
        m_fromHost.push_back(std::move(transfer));
        MarkArrivals();
    } else if (transfer.endpoint == kNoticeEndpoint) {
        m_toNotify.push_back(std::move(transfer));
        Notify();
    } else {
        m_toHost.push_back(std::move(transfer));
    }
}

void AcmDevice::Control(const Transfer& transfer) {
    const auto end = [&](const std::uint8_t* bytes, std::size_t count) {
        m_link.End(transfer, kDone, bytes, std::min<std::size_t>(count, transfer.length));
    };
    constexpr std::array<std::uint8_t, 2> kNoStatus{};
    switch (Request(transfer.setup[0], transfer.setup[1])) {
    case kGetDescriptor:
        if (transfer.setup[3] == kDevice) {
            return end(kDeviceDescriptor.data(), kDeviceDescriptor.size());
        }
        if (transfer.setup[3] == kConfigurations) {
            return end(kConfiguration.data(), kConfiguration.size());
        }
        break;
    case kGetStatus:
        return end(kNoStatus.data(), kNoStatus.size());
    case kSetLineState:
        SetOpen((transfer.setup[2] & kTerminalReady) != 0);
        return end(nullptr, 0);
    case kSetLineCoding:
        return end(nullptr, transfer.length);
    case kSetConfiguration:
    case kSetInterface:
    case kClearHalt:
    case kSendBreak:
        return end(nullptr, 0);
    default:
        break;
    }
    m_link.End(transfer, kStalled, nullptr, 0);
}

void AcmDevice::SetOpen(bool isOpen) {
    if (isOpen != m_isOpen) {
        m_isOpen = isOpen;
        Set(m_changes);
    }
}

// A transfer that has already ended is answered with success.
void AcmDevice::TakeBack(const Message& message) {
    const bool isFirst = !m_fromHost.empty() && m_fromHost.front().number == message.unlinked;
    m_taken = isFirst ? 0 : m_taken;
    const bool isTaken = Erase(m_fromHost, message.unlinked) || Erase(m_toHost, message.unlinked) ||
                         Erase(m_toNotify, message.unlinked);
    m_link.AnswerUnlink(message, isTaken ? kUnlinked : kDone);
    MarkArrivals();
}

void AcmDevice::Notify() {
    while (!m_notices.empty() && !m_toNotify.empty()) {
        const std::array<std::uint8_t, 10> notice = {
            0xA1, 0x20, 0, 0, 0, 0, 2, 0, m_notices.front(), 0};
        m_link.End(m_toNotify.front(), kDone, notice.data(), notice.size());
        m_toNotify.pop_front();
        m_notices.pop_front();
    }
}

void AcmDevice::MarkArrivals() const {
    if (m_fromHost.empty()) {
        Clear(m_arrivals);
    } else {
        Set(m_arrivals);
    }
}

} // namespace emulator::usb
