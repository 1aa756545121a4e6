#pragma once

#include "tools/emulator/Firmware.h"

#include <gtest/gtest.h>
#include <optional>

// The firmware with a clock controlled by the test, and the bytes that a host sends to it.

using namespace emulator;
using namespace std::chrono_literals;

inline const Bytes kStart500 = {0x00, 0xD1, 0x6F, 0x05}; // 65536 - 12000 + 79
inline const Bytes kRequest = {'N', 0};

// A frame of eight equal codes, 12 bits, set bit by bit: all bits of a plane are alike.
inline void PutEqualFrame12(std::uint8_t* frame, unsigned code) {
    for (unsigned plane = 0; plane < 12; ++plane) {
        frame[plane] = (code >> (11 - plane)) % 2 == 1 ? 0xFF : 0x00;
    }
}

inline Bytes Packet12(std::uint8_t sequence, unsigned code) {
    Bytes packet(64, 0);
    packet[0] = 1;
    packet[1] = sequence;
    for (std::size_t slot = 0; slot < 5; ++slot) {
        PutEqualFrame12(packet.data() + 4 + 12 * slot, code);
    }
    return packet;
}

// A buffer of 50 packets whose first sequence number is given, marker included.
inline Bytes Buffer12(unsigned firstSequence, unsigned code) {
    Bytes buffer;
    for (unsigned packet = 0; packet < 50; ++packet) {
        const Bytes bytes = Packet12(static_cast<std::uint8_t>(firstSequence + packet), code);
        buffer.insert(buffer.end(), bytes.begin(), bytes.end());
    }
    buffer[322] = 0x45;
    return buffer;
}

inline Codes AllChannels(std::uint16_t code) {
    Codes codes;
    codes.fill(code);
    return codes;
}

class FirmwareTest : public testing::Test {
  protected:
    FirmwareTest() : FirmwareTest(Unit::kTwelveBit) {}
    explicit FirmwareTest(Unit unit) : m_settings(Settings::Of(unit)) { SwitchOn(); }

    void SwitchOn() {
        m_behaviour = m_settings.behaviour;
        m_firmware.emplace(m_settings, m_behaviour, m_journal, nullptr);
    }

    void Send(const Bytes& bytes) { m_firmware->Receive(bytes.data(), bytes.size(), m_now); }

    // Advances the time, with nothing left on the line; everything due in between happens at its
    // time.
    void Pass(Clock::duration time) {
        const Clock::time_point end = m_now + time;
        m_firmware->Advance(m_now, true);
        while (const auto event = m_firmware->NextEvent()) {
            if (*event > end) {
                break;
            }
            ASSERT_GE(*event, m_now);
            m_now = *event;
            m_firmware->Advance(m_now, true);
        }
        m_now = end;
        m_firmware->Advance(m_now, true);
    }

    // All bytes that may be sent by now.
    Bytes Said() {
        Bytes said;
        while (const Bytes* piece = m_firmware->Out().Due(m_now)) {
            said.insert(said.end(), piece->begin(), piece->end());
            m_firmware->Out().Said(piece->size());
        }
        return said;
    }

    Counters Count() const { return m_journal.Count(); }

    Settings m_settings;
    Behaviour m_behaviour;
    Journal m_journal{m_settings};
    std::optional<Firmware> m_firmware;
    Clock::time_point m_now{1000s};
};
