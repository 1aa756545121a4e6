#pragma once

#include "lab/common/Failure.h"
#include "lab/material/readers/SourceRecord.h"
#include "tests/support/Files.h"

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

// Samples as stored in files, and as the readers return them.

// Packs numbers into bytes, least significant bit first.
class BitWriter {
  public:
    void Put(int64_t value, int bits) {
        for (int i = 0; i < bits; ++i, ++m_bits) {
            if (m_bits % 8 == 0) {
                m_bytes += '\0';
            }
            const bool isSet = (value >> i & 1) != 0;
            m_bytes.back() = static_cast<char>(m_bytes.back() | (isSet ? 1 << m_bits % 8 : 0));
        }
    }
    const std::string& Bytes() const { return m_bytes; }

  private:
    std::string m_bytes;
    std::size_t m_bits = 0;
};

inline std::string Words(const std::vector<int64_t>& values, int bits) {
    BitWriter writer;
    for (const int64_t value : values) {
        writer.Put(value, bits);
    }
    return writer.Bytes();
}

// Pairs of 12 bits around their high nibbles; an odd last sample is followed by 0.
inline std::string Pairs(std::vector<int64_t> values) {
    values.resize(values.size() + values.size() % 2);
    BitWriter writer;
    for (std::size_t i = 0; i < values.size(); i += 2) {
        writer.Put(values[i], 8);
        writer.Put(values[i] >> 8, 4);
        writer.Put(values[i + 1] >> 8, 4);
        writer.Put(values[i + 1], 8);
    }
    return writer.Bytes();
}

// All samples of these signals.
inline lab::Samples ReadAll(lab::SourceReader& reader, const std::vector<std::size_t>& signals) {
    lab::Samples all(signals.size());
    lab::Samples block;
    for (reader.Begin(signals); reader.Read(block);) {
        for (std::size_t i = 0; i < block.size(); ++i) {
            all[i].insert(all[i].end(), block[i].begin(), block[i].end());
        }
    }
    return all;
}

// Samples as text, "-" for missing ones, so that rows can be compared although NaN equals nothing.
inline std::string Text(const std::vector<double>& samples) {
    std::string text;
    for (const double sample : samples) {
        char number[32];
        std::snprintf(number, sizeof number, "%.6g", sample + 0.0);
        text += std::isnan(sample) ? "- " : std::string(number) + " ";
    }
    return text;
}

// The failure with which `action` ends, preceded by its status; empty when it succeeds.
template <typename Action>
std::string FailureOf(const Action& action) {
    try {
        action();
    } catch (const lab::Failure& failure) {
        return std::to_string(failure.Status()) + " " + failure.what();
    }
    return "";
}
