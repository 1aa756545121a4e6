#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// Files of unknown origin, opened with care: only ordinary ones, read in blocks.
namespace lab {

// The file's extension in lower case with its dot, empty without one.
std::string Extension(const std::string& path);

// The path up to and including its last "/", empty without one.
std::string DirectoryOf(const std::string& path);

// The file's name without directory and extension.
std::string StemOf(const std::string& path);

// Fails when `path` is missing (with `cure`), is not a file or is not readable.
void RequireFile(const std::string& path, const std::string& cure = "Check the path.");

// An ordinary file for reading. Not copied; closes itself.
class ByteFile {
  public:
    // Fails as RequireFile does.
    explicit ByteFile(const std::string& path, const std::string& cure = "Check the path.");
    ~ByteFile();
    ByteFile(ByteFile&& other) noexcept;
    ByteFile(const ByteFile&) = delete;
    ByteFile& operator=(const ByteFile&) = delete;

    const std::string& Path() const { return m_path; }
    int64_t Size() const { return m_size; }

    // Reads up to `count` bytes from `position` on and returns how many: fewer only at the end of
    // the file. Fails with the system's reason on a read error.
    std::size_t ReadAt(int64_t position, void* out, std::size_t count) const;

  private:
    std::string m_path;
    int m_descriptor = -1;
    int64_t m_size = 0;
};

// The whole of a small file. Fails as ByteFile does, and when it holds more than `most` bytes.
std::string ReadText(const std::string& path, std::size_t most);

} // namespace lab
