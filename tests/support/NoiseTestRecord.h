#pragma once

#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/file.h>
#include <system_error>
#include <unistd.h>

// The temporary record of the noise stress test loaders.  Its name is the same for every process,
// so a test that loads one holds the machine's only place for it while this object exists, and
// finds the place empty.
class NoiseTestRecord {
  public:
    NoiseTestRecord() : m_lock(open("/tmp", O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        flock(m_lock, LOCK_EX);
        Remove();
    }
    ~NoiseTestRecord() {
        Remove();
        close(m_lock);
    }
    NoiseTestRecord(const NoiseTestRecord&) = delete;
    NoiseTestRecord& operator=(const NoiseTestRecord&) = delete;

    static const char* HeaderFile() { return "/tmp/ravoXXX.hea"; }
    static const char* DataFile() { return "/tmp/ravoXXX.dat"; }

    // False when another user's files lie there, which this process cannot remove.
    static bool IsUsable() { return !HasHeader() && !HasData(); }
    static bool HasHeader() { return std::filesystem::exists(HeaderFile()); }
    static bool HasData() { return std::filesystem::exists(DataFile()); }

  private:
    static void Remove() {
        std::error_code ignored;
        std::filesystem::remove_all(HeaderFile(), ignored);
        std::filesystem::remove_all(DataFile(), ignored);
    }

    int m_lock;
};
