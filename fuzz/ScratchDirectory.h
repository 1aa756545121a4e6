#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

// A directory in memory where a fuzz target writes the files to be read; one per process.
class ScratchDirectory {
  public:
    static ScratchDirectory& Get() {
        static ScratchDirectory directory;
        return directory;
    }

    const std::string& Path() const { return m_path; }
    std::string File(const std::string& name) const { return m_path + "/" + name; }

    // Writes a file and returns its path.
    std::string Write(const std::string& name, const void* data, size_t size) const {
        std::string path = File(name);
        FILE* file = std::fopen(path.c_str(), "wb");
        if (file == nullptr || (size > 0 && std::fwrite(data, 1, size, file) != size)) {
            std::abort();
        }
        std::fclose(file);
        return path;
    }

  private:
    ScratchDirectory() {
        std::error_code ignored;
        const bool hasMemory = std::filesystem::is_directory("/dev/shm", ignored);
        m_path = hasMemory ? "/dev/shm/ravo-fuzz-XXXXXX" : "/tmp/ravo-fuzz-XXXXXX";
        if (mkdtemp(m_path.data()) == nullptr) {
            std::abort();
        }
    }
    ~ScratchDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }

    std::string m_path;
};
