#pragma once

#include <string>

namespace lab {

// The folder of one run, locked against other runs while the object exists.
class RunFolder {
  public:
    // Creates the folder when it is missing. Fails when it cannot be written or is in use, and
    // when it is not empty, unless `mayHoldRun` and it holds a run.
    RunFolder(const std::string& path, bool mayHoldRun);
    ~RunFolder();
    RunFolder(const RunFolder&) = delete;
    RunFolder& operator=(const RunFolder&) = delete;

    const std::string& Path() const { return m_path; }

    // A descriptor for openat and fsync.
    int Handle() const { return m_handle; }

    // Whether the path still leads to this folder.
    bool IsInPlace() const;

    // Replaces the file atomically: it is written under another name, synced, and renamed.
    void Replace(const std::string& name, const std::string& content) const;

    // Makes the folder's own entries durable.
    void Sync() const;

  private:
    std::string m_path;
    int m_handle = -1;
};

// Fails with the reason (an errno) why something in the folder cannot be written, and the cure.
[[noreturn]] void FailToWrite(const std::string& path, int error);

} // namespace lab
