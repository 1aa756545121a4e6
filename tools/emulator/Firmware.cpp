#include "tools/emulator/Firmware.h"

#include "tools/emulator/Decoder.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace emulator {
namespace {

constexpr std::size_t kUnlimited = std::size_t{64} * 1024;
constexpr std::size_t kMarkerPacket = 5; // byte 322 of a buffer is byte 2 of this packet
constexpr std::uint8_t kMarker = 'E';
constexpr std::size_t kStatusBytes = 15;
constexpr Clock::duration kPunctual = std::chrono::milliseconds(2);
constexpr Clock::duration kPartialCommandLife = std::chrono::seconds(1);

// A delay is reported in two digits to the base 100, in steps of 5 ms.
constexpr double kDelayStep = 5.0;
constexpr double kLongestDelay = 255 * 100 + 99;

double Seconds(Clock::duration duration) {
    return std::chrono::duration<double>(duration).count();
}

std::optional<Clock::time_point> Earlier(std::optional<Clock::time_point> a,
                                         std::optional<Clock::time_point> b) {
    return a && b ? std::min(*a, *b) : (a ? a : b);
}

} // namespace

Firmware::Firmware(const Settings& settings, Behaviour& behaviour, Journal& journal, Sink* sink)
    : m_unit(settings.unit), m_capacityPackets(settings.bufferBytes / kPacketBytes),
      m_behaviour(behaviour), m_journal(journal), m_sink(sink) {}

std::size_t Firmware::Room() const {
    if (!m_play) {
        return kUnlimited;
    }
    const std::size_t room = m_play->playout.RoomPackets() * kPacketBytes;
    return room - std::min(room, m_pending.size());
}

void Firmware::Receive(const std::uint8_t* bytes, std::size_t count, Clock::time_point now) {
    m_journal.AddBytes(bytes, count);
    m_pending.insert(m_pending.end(), bytes, bytes + count);
    m_lastArrival = now;

    std::size_t done = 0;
    for (;;) {
        const std::uint8_t* next = m_pending.data() + done;
        const RecognisedCommand found = Recognise(next, m_pending.size() - done);
        if (found.command == Command::kIncomplete) {
            break;
        }
        Obey(found.command, next, found.length, now);
        done += found.length;
    }
    m_pending.erase(m_pending.begin(), m_pending.begin() + static_cast<std::ptrdiff_t>(done));
    HandOnArrived();
}

void Firmware::HandOnArrived() {
    if (m_arrived.empty()) {
        return;
    }
    m_journal.AddFrames(m_arrived);
    if (m_sink != nullptr) {
        m_sink->Arrived(m_arrived);
    }
    m_arrived.clear();
}

void Firmware::Obey(Command command, const std::uint8_t* bytes, std::size_t length,
                    Clock::time_point now) {
    if (command == Command::kPacket) {
        TakePacket(bytes, now);
        return;
    }
    switch (command) {
    case Command::kIdentity:
        Answer(m_behaviour.identity, now);
        break;
    case Command::kLegacyModel:
        Answer(m_behaviour.legacyReply, now);
        break;
    case Command::kReadFlash:
        ReadFlash(now);
        break;
    case Command::kWriteFlash:
        WriteFlash(bytes, now);
        break;
    case Command::kLinkId:
        Answer({bytes[0], bytes[1], m_behaviour.linkId}, now);
        break;
    case Command::kStaticValue:
        m_journal.AddStaticValue(UnpackPlanes(bytes + 4, 12));
        break;
    case Command::kStart:
        TakeStart(bytes, now);
        break;
    case Command::kStop:
        EndPlay(now);
        m_journal.Update([](Counters& counters) { ++counters.stops; });
        break;
    case Command::kClose:
        EndPlay(now);
        m_journal.Update([](Counters& counters) { ++counters.closes; });
        break;
    default:
        m_journal.Update([&](Counters& counters) { counters.unknownBytes += length; });
        break;
    }
    m_journal.AddCommand(command, bytes, length);
}

void Firmware::Answer(Bytes reply, Clock::time_point now) {
    if (!reply.empty()) {
        m_out.Reply(std::move(reply), m_behaviour.replies, now);
    }
}

void Firmware::ReadFlash(Clock::time_point now) {
    if (m_unit != Unit::kLegacy) {
        Answer(Bytes(m_behaviour.flash.begin(), m_behaviour.flash.end()), now);
    }
}

void Firmware::WriteFlash(const std::uint8_t* table, Clock::time_point now) {
    if (m_unit != Unit::kLegacy) {
        std::copy_n(table, m_behaviour.flash.size(), m_behaviour.flash.begin());
        ReadFlash(now);
    }
}

void Firmware::TakeStart(const std::uint8_t* bytes, Clock::time_point now) {
    if (m_behaviour.refusesStart) {
        return;
    }
    EndPlay(now);
    SeenStart start;
    start.reload = static_cast<std::uint16_t>(bytes[1] << 8U | bytes[2]);
    start.range = bytes[3];
    start.rate = ClockRate(start.reload, m_unit);
    // The host sends the first buffer without a request.
    m_play.emplace(
        Play{Playout(RealRate(start.rate), FramesPerPacket(BitsOf(m_unit)), m_capacityPackets,
                     &m_journal.FrameTimes(), m_journal.Count().frames),
             start.rate, kBufferPackets, std::nullopt, 0, 0, now});
    m_journal.AddStart(start);
    if (m_sink != nullptr) {
        m_sink->Started(start);
    }
}

double Firmware::RealRate(double nominal) const {
    constexpr double kMillionth = 1e-6;
    return nominal * m_behaviour.speed * (1.0 + m_behaviour.clockPpm * kMillionth);
}

void Firmware::TakePacket(const std::uint8_t* packet, Clock::time_point now) {
    if (!m_play) {
        m_journal.Update([](Counters& counters) { ++counters.packetsOutsidePlay; });
        return;
    }
    CheckPacket(packet);
    UnpackPacket(packet, BitsOf(m_unit), m_arrived);
    Hold(now);
    CountArrival(now);
}

void Firmware::CheckPacket(const std::uint8_t* packet) {
    const bool isInSequence = packet[1] == m_play->nextSequence;
    const bool isMarked = packet[2] == kMarker && m_play->packetOfBuffer == kMarkerPacket;
    const unsigned stray = (!isMarked && packet[2] != 0 ? 1U : 0U) + (packet[3] != 0 ? 1U : 0U);
    m_journal.Update([&](Counters& counters) {
        ++counters.packets;
        counters.sequenceGaps += isInSequence ? 0 : 1;
        counters.markers += isMarked ? 1 : 0;
        counters.strayHeaderBytes += stray;
    });
    m_play->nextSequence = static_cast<std::uint8_t>(packet[1] + 1);
    m_play->packetOfBuffer = (m_play->packetOfBuffer + 1) % kBufferPackets;
}

void Firmware::Hold(Clock::time_point now) {
    if (const auto held = m_play->playout.Add(now)) {
        ReportDelay(*held, now);
    }
}

void Firmware::CountArrival(Clock::time_point now) {
    if (m_play->expectedPackets == 0) {
        m_journal.Update([](Counters& counters) { ++counters.unaskedPackets; });
        return;
    }
    --m_play->expectedPackets;
    if (m_play->expectedPackets == 0 && m_play->askedAt) {
        m_journal.AddAnswerTime(now - *m_play->askedAt);
    }
}

void Firmware::ReportDelay(Clock::duration held, Clock::time_point now) {
    const double milliseconds = Seconds(held) * 1000.0 * m_behaviour.speed;
    const double steps = std::clamp(std::ceil(milliseconds / kDelayStep), 1.0, kLongestDelay);
    const auto report = static_cast<unsigned>(steps);
    m_out.Send(
        {'X', static_cast<std::uint8_t>(report / 100), static_cast<std::uint8_t>(report % 100)},
        now + m_behaviour.asksLate);
    m_journal.Update([&](Counters& counters) {
        ++counters.delayReports;
        counters.delayMs += report * static_cast<std::uint64_t>(kDelayStep);
    });
}

void Firmware::SendStatus(Clock::time_point now) {
    // The meaning of the fourteen bytes is internal to the firmware. The values chosen would
    // request buffers if the host mistook them for records.
    Bytes record(kStatusBytes, 'N');
    record[0] = 'S';
    m_out.Send(std::move(record), now);
    m_journal.Update([](Counters& counters) { ++counters.statusRecords; });
}

void Firmware::AskForBuffer(Clock::time_point now) {
    if (!m_behaviour.asks || m_play->expectedPackets > 0 ||
        m_play->playout.RoomPackets() < kBufferPackets) {
        return;
    }
    const std::uint64_t number = m_journal.Count().requests + 1;
    if (m_behaviour.statusEvery > 0 &&
        number % static_cast<unsigned>(m_behaviour.statusEvery) == 0) {
        SendStatus(now);
    }
    m_out.Send({'N', 0}, now + m_behaviour.asksLate);
    m_play->expectedPackets = kBufferPackets;
    m_play->askedAt = now;
    m_journal.Update([](Counters& counters) { ++counters.requests; });
}

void Firmware::SwitchOff(Clock::time_point now) {
    EndPlay(now);
}

void Firmware::EndPlay(Clock::time_point now) {
    if (!m_play) {
        return;
    }
    HandOnArrived();
    const std::size_t dropped = m_play->playout.HeldFrames();
    const double seconds = Seconds(now - m_play->startedAt);
    m_play.reset();
    m_planned.reset();
    m_journal.Update([&](Counters& counters) {
        counters.droppedFrames += dropped;
        counters.playedSeconds += seconds;
    });
    if (m_sink != nullptr) {
        m_sink->Stopped();
    }
}

void Firmware::Advance(Clock::time_point now, bool isLineEmpty) {
    if (isLineEmpty) {
        DropStalePart(now);
    }
    if (!m_play) {
        return;
    }
    ForgiveLateness(now);
    m_play->playout.Advance(now);
    AskForBuffer(now);
    if (isLineEmpty && m_play->playout.NoticeDry(now)) {
        m_journal.Update([](Counters& counters) { ++counters.underruns; });
    }
    m_planned = Earlier(m_play->playout.WhenRoomForBuffer(), m_play->playout.WhenDry());
}

void Firmware::ForgiveLateness(Clock::time_point now) {
    if (m_planned && now - *m_planned > kPunctual) {
        m_play->playout.Advance(*m_planned); // frames due before the delay have left on time
        m_play->playout.PutOff(now - *m_planned);
    }
    m_planned.reset();
}

void Firmware::ApplySpeed(Clock::time_point now) {
    if (m_play) {
        m_play->playout.SetRate(RealRate(m_play->rate), now);
    }
}

// The rest of a truncated command never arrives, and the next command must not be mistaken for it.
void Firmware::DropStalePart(Clock::time_point now) {
    if (m_pending.empty() || now - m_lastArrival < kPartialCommandLife) {
        return;
    }
    m_journal.Update([&](Counters& counters) { counters.unknownBytes += m_pending.size(); });
    m_pending.clear();
}

std::optional<Clock::time_point> Firmware::NextEvent() const {
    std::optional<Clock::time_point> next;
    if (!m_pending.empty()) {
        next = m_lastArrival + kPartialCommandLife;
    }
    if (m_play) {
        next = Earlier(next, m_play->playout.WhenRoomForBuffer());
        next = Earlier(next, m_play->playout.WhenDry());
    }
    return next;
}

} // namespace emulator
