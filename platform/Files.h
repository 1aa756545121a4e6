#pragma once

#include <cstdio>
#include <memory>

struct FileCloser {
    void operator()(FILE* file) const { std::fclose(file); }
};

using OwnedFile = std::unique_ptr<FILE, FileCloser>;

// Opens a file for binary reading; the caller closes it.  Null for whatever is not an ordinary
// file: a directory opens and then reads as empty, a pipe or a device may keep its reader waiting
// for ever.
FILE* OpenOrdinaryFile(const char* path);
