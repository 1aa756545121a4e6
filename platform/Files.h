#pragma once

#include <cstdio>
#include <memory>
#include <string>

// Files that the library reads and writes: ordinary ones only, because opening or reading a pipe or
// a device may block for ever, and a directory opens but reads as empty.  Where a function fails it
// sets the calling thread's reason (platform/LastError.h).

struct FileCloser {
    void operator()(FILE* file) const { std::fclose(file); }
};

using OwnedFile = std::unique_ptr<FILE, FileCloser>;

// Opens a file for binary reading; the caller closes it.  Null on failure.
FILE* OpenOrdinaryFile(const char* path);

// Creates a file for writing, or empties the one of that name.  A link is followed unless it
// belongs to another user.  Null on failure.
OwnedFile CreateOrdinaryFile(const char* path);

// A file being written under a temporary name beside its final one, so that the final name always
// denotes a complete file.  A file that was not renamed is deleted.
class CFileInTheMaking {
  public:
    explicit CFileInTheMaking(std::string finalPath);
    ~CFileInTheMaking();
    CFileInTheMaking(const CFileInTheMaking&) = delete;
    CFileInTheMaking& operator=(const CFileInTheMaking&) = delete;

    bool Create();
    FILE* Get() const { return m_file.get(); }
    // Flushes everything to the disk and closes the file.
    bool Close();
    bool Rename();

  private:
    std::string m_finalPath;
    std::string m_path; // empty once there is nothing to delete
    OwnedFile m_file;
};

// Closes a file that was written.  False when some of the data has not reached it; `path` is named
// in the reason.
bool CloseWritten(OwnedFile file, const char* path);

// Sets the reason why a file cannot be opened or read, or created or written, from the value of
// errno.
void SetReadFailure(const char* path, int error);
void SetWriteFailure(const char* path, int error);
