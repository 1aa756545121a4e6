#pragma once

#include <string>

namespace lab {

// A private directory that vanishes with everything in it. Fails when none can be made.
class TemporaryDirectory {
  public:
    TemporaryDirectory(); // where the system keeps temporary files
    explicit TemporaryDirectory(const std::string& parent);
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::string& Path() const { return m_path; }

  private:
    std::string m_path;
};

// Provides a file under a plain path, for readers that decide by what a path contains: in
// "/data/x.txt.d/a.ecg" they would see a text file. The file is linked, not copied.
class Staging {
  public:
    // Provides `path` under the plain part of its own name, with `extension`.
    Staging(const std::string& path, const std::string& extension);

    const std::string& Path() const { return m_path; }

    // Files that a reader writes here are removed together with it.
    const std::string& Directory() const { return m_directory.Path(); }

  private:
    TemporaryDirectory m_directory;
    std::string m_path;
};

} // namespace lab
