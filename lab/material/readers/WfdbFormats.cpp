#include "lab/material/readers/WfdbFormats.h"

#include <array>
#include <cstring>
#include <endian.h>

namespace lab {
namespace {

int32_t SignExtend(uint32_t value, int bits) {
    const int shift = 32 - bits;
    return static_cast<int32_t>(value << shift) >> shift;
}

int32_t Little16(const unsigned char* at) {
    return static_cast<int16_t>(at[0] | at[1] << 8);
}

uint32_t Word16(const unsigned char* at) {
    return static_cast<uint32_t>(at[0] | at[1] << 8);
}

uint32_t Word32(const unsigned char* at) {
    uint32_t word = 0;
    std::memcpy(&word, at, sizeof word);
    return le32toh(word);
}

void Decode8(const unsigned char* bytes, std::size_t groups, int32_t* out) {
    for (std::size_t i = 0; i < groups; ++i) {
        out[i] = static_cast<signed char>(bytes[i]);
    }
}

void Decode16(const unsigned char* bytes, std::size_t groups, int32_t* out) {
    for (std::size_t i = 0; i < groups; ++i) {
        out[i] = Little16(bytes + 2 * i);
    }
}

void Decode61(const unsigned char* bytes, std::size_t groups, int32_t* out) {
    for (std::size_t i = 0; i < groups; ++i) {
        out[i] = static_cast<int16_t>(bytes[2 * i] << 8 | bytes[2 * i + 1]);
    }
}

void Decode24(const unsigned char* bytes, std::size_t groups, int32_t* out) {
    for (std::size_t i = 0; i < groups; ++i, bytes += 3) {
        out[i] = SignExtend(Word32(bytes), 24);
    }
}

void Decode32(const unsigned char* bytes, std::size_t groups, int32_t* out) {
    for (std::size_t i = 0; i < groups; ++i, bytes += 4) {
        out[i] = static_cast<int32_t>(Word32(bytes));
    }
}

void Decode80(const unsigned char* bytes, std::size_t groups, int32_t* out) {
    for (std::size_t i = 0; i < groups; ++i) {
        out[i] = bytes[i] - 128;
    }
}

void Decode160(const unsigned char* bytes, std::size_t groups, int32_t* out) {
    for (std::size_t i = 0; i < groups; ++i) {
        out[i] = static_cast<int32_t>(Word16(bytes + 2 * i)) - 32768;
    }
}

void Decode212(const unsigned char* bytes, std::size_t groups, int32_t* out) {
    for (std::size_t i = 0; i < groups; ++i, bytes += 3) {
        const uint32_t word = Word32(bytes);
        const uint32_t second = (word >> 16U & 0xFFU) | (word >> 4U & 0xF00U);
        *out++ = SignExtend(word, 12);
        *out++ = SignExtend(second, 12);
    }
}

// Ten bits from the second lowest on in each half; the five highest of both make the third.
void Decode310(const unsigned char* bytes, std::size_t groups, int32_t* out) {
    for (std::size_t i = 0; i < groups; ++i, bytes += 4) {
        const uint32_t word = Word32(bytes);
        *out++ = SignExtend(word >> 1U, 10);
        *out++ = SignExtend(word >> 17U, 10);
        *out++ = SignExtend((word >> 11U & 0x1FU) | word >> 27U << 5U, 10);
    }
}

void Decode311(const unsigned char* bytes, std::size_t groups, int32_t* out) {
    for (std::size_t i = 0; i < groups; ++i, bytes += 4) {
        const uint32_t word = Word32(bytes);
        *out++ = SignExtend(word, 10);
        *out++ = SignExtend(word >> 10U, 10);
        *out++ = SignExtend(word >> 20U, 10);
    }
}

constexpr std::array<WfdbFormat, 10> kFormats = {{
    {8, 1, 1, kMissingNowhere, Decode8, true},
    {16, 2, 1, -(1 << 15), Decode16, false},
    {24, 3, 1, -(1 << 23), Decode24, false},
    {32, 4, 1, std::numeric_limits<int32_t>::min(), Decode32, false},
    {61, 2, 1, -(1 << 15), Decode61, false},
    {80, 1, 1, -(1 << 7), Decode80, false},
    {160, 2, 1, -(1 << 15), Decode160, false},
    {212, 3, 2, -(1 << 11), Decode212, false},
    {310, 4, 3, -(1 << 9), Decode310, false},
    {311, 4, 3, -(1 << 9), Decode311, false},
}};

// In an incomplete group those samples count whose bits are all present.
int64_t SamplesInPart(int format, int64_t bytes) {
    if (format == 212) {
        return bytes >= 2 ? 1 : 0;
    }
    if (format == 310) {
        return bytes >= 2 ? 1 : 0;
    }
    return format == 311 ? (bytes >= 3 ? 2 : bytes >= 2 ? 1 : 0) : 0;
}

} // namespace

int64_t WfdbFormat::SamplesIn(int64_t bytes) const {
    return bytes / bytesPerGroup * samplesPerGroup + SamplesInPart(number, bytes % bytesPerGroup);
}

const WfdbFormat* FindWfdbFormat(int number) {
    for (const WfdbFormat& format : kFormats) {
        if (format.number == number) {
            return &format;
        }
    }
    return nullptr;
}

} // namespace lab
