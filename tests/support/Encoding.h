#pragma once

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <vector>

// Makes record files for the tests: a directory of their own, and encoders for both storage
// formats that share nothing with the readers.

class TemporaryDirectory {
  public:
    TemporaryDirectory() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "ravo-test-XXXXXX").string();
        m_path = mkdtemp(pattern.data());
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::string& Path() const { return m_path; }
    std::string File(const std::string& name) const { return m_path + "/" + name; }

    std::string Write(const std::string& name, const std::string& content) const {
        std::ofstream(File(name), std::ios::binary) << content;
        return File(name);
    }
    std::string Write(const std::string& name, const std::vector<uint8_t>& content) const {
        return Write(name, std::string(content.begin(), content.end()));
    }

  private:
    std::string m_path;
};

// Two bytes a sample, low byte first.
inline std::vector<uint8_t> EncodeFormat16(const std::vector<int>& samples) {
    std::vector<uint8_t> bytes;
    for (const int sample : samples) {
        const int code = (sample + 65536) % 65536;
        bytes.push_back(static_cast<uint8_t>(code % 256));
        bytes.push_back(static_cast<uint8_t>(code / 256));
    }
    return bytes;
}

// Three bytes a pair of samples; an odd last sample is followed by a 0.
inline std::vector<uint8_t> EncodeFormat212(std::vector<int> samples) {
    if (samples.size() % 2 != 0) {
        samples.push_back(0);
    }
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i < samples.size(); i += 2) {
        const int first = (samples[i] + 4096) % 4096;
        const int second = (samples[i + 1] + 4096) % 4096;
        bytes.push_back(static_cast<uint8_t>(first % 256));
        bytes.push_back(static_cast<uint8_t>(first / 256 + second / 256 * 16));
        bytes.push_back(static_cast<uint8_t>(second % 256));
    }
    return bytes;
}

// A public record for acceptance tests; empty when it is not there.
inline std::string FindSharedRecord(const std::string& name) {
    const char* directory = std::getenv("RAVO_TEST_DATA");
    const std::filesystem::path source = std::filesystem::path(__FILE__).parent_path();
    const std::filesystem::path data =
        directory != nullptr ? std::filesystem::path(directory) : source / "../../../shared/data";
    std::error_code ignored;
    const std::filesystem::path file = data / name;
    return std::filesystem::exists(file, ignored) ? file.string() : std::string();
}
