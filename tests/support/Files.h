#pragma once

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

// Files that a test makes and reads.

// A directory for one test, which is removed with the object.
class Scratch {
  public:
    Scratch() : m_path((std::filesystem::temp_directory_path() / "ravo-test.XXXXXX").string()) {
        if (::mkdtemp(m_path.data()) == nullptr) {
            throw std::runtime_error("no temporary directory");
        }
    }
    ~Scratch() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    const std::string& Path() const { return m_path; }
    std::string operator/(const std::string& name) const { return m_path + "/" + name; }

    // Writes a file, with the directories in its name, and returns its path.
    std::string Write(const std::string& name, const std::string& content) const {
        const std::string path = *this / name;
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }
    std::string Write(const std::string& name, const std::vector<uint8_t>& content) const {
        return Write(name, std::string(content.begin(), content.end()));
    }

  private:
    std::string m_path;
};

// The whole file as it is; empty when there is none.
inline std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}
