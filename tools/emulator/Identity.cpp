#include "tools/emulator/Identity.h"

#include <algorithm>
#include <cstdio>
#include <string_view>

namespace emulator {
namespace {

constexpr std::uint8_t kFirstOfLongFormat = 17;
constexpr std::size_t kLegacySerialAt = 11;
constexpr std::size_t kLegacySerialLength = 7;

bool HasLongFormat(const FlashTable& flash) {
    return flash[10] >= kFirstOfLongFormat;
}

} // namespace

Settings Settings::Of(Unit unit, int port) {
    Settings settings;
    settings.unit = unit;
    settings.port = port;
    settings.behaviour.flash = DefaultFlashTable(unit);
    settings.behaviour.legacyReply = DefaultLegacyReply();
    return settings;
}

FlashTable DefaultFlashTable(Unit unit) {
    FlashTable flash{};
    flash[0] = 0x12;
    flash[1] = 0x55;
    flash[2] = 0xAA;
    flash[3] = 0xFF;
    flash[6] = 'A';
    flash[7] = 'B';
    flash[8] = unit == Unit::kSixteenBit ? 21 : 20;
    flash[9] = 5;
    flash[10] = 17;
    flash[11] = 0;
    flash[12] = 42;
    flash[13] = 3;
    flash[14] = 1;
    flash[15] = 2;
    constexpr std::string_view kManufacturing = "EMULATED UNIT 42";
    std::copy(kManufacturing.begin(), kManufacturing.end(), flash.begin() + 48);
    return flash;
}

Bytes DefaultLegacyReply() {
    constexpr std::string_view kText = "RAVO 1.0 TR1603042";
    Bytes reply(kText.begin(), kText.end());
    reply.push_back(0);
    return reply;
}

std::string LongSerial(const FlashTable& flash) {
    const int a = flash[8];
    const int b = flash[9];
    const int c = flash[10];
    const int serial = flash[11] * 256 + flash[12];
    std::array<char, 32> text{};
    if (HasLongFormat(flash)) {
        std::snprintf(text.data(), text.size(), "T%c%c%02d%02d-%02d%04d", flash[6], flash[7], a, b,
                      c, serial);
    } else {
        std::snprintf(text.data(), text.size(), "T%c%02d%02d%03d", flash[6], c, b, serial);
    }
    return text.data();
}

std::string ShortSerial(Unit unit, const Behaviour& behaviour) {
    if (unit != Unit::kLegacy) {
        const std::string serial = LongSerial(behaviour.flash);
        const std::size_t prefix = HasLongFormat(behaviour.flash) ? 5 : 2;
        return serial.substr(std::min(prefix, serial.size()));
    }
    const Bytes& reply = behaviour.legacyReply;
    const auto from = std::min(kLegacySerialAt, reply.size());
    const auto to = std::min(kLegacySerialAt + kLegacySerialLength, reply.size());
    return std::string(reply.data() + from, reply.data() + to);
}

std::string CalibrationFilePath(Unit unit, const Behaviour& behaviour) {
    return "/usr/local/tarnwick/ravo/RAVO_DAC" + ShortSerial(unit, behaviour) + ".txt";
}

} // namespace emulator
