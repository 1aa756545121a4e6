#include "WFDB/Utils.h"

#include "platform/Text.h"

#include <cstddef>
#include <cstring>
#include <unistd.h>

namespace {

constexpr size_t kPathSize = 256;

// Copies at most size - 1 characters and fills the rest of `out` with zeros.
void CopyAndFill(char* out, const char* text, size_t size) {
    std::memset(out, 0, size);
    std::memcpy(out, text, strnlen(text, size - 1));
}

} // namespace

void StringTrimRight(char* text) {
    if (text == nullptr) {
        return;
    }
    char* end = text + std::strlen(text);
    while (end > text && IsSpace(end[-1])) {
        --end;
    }
    *end = '\0';
}

void StringTrimLeft(char* text) {
    if (text == nullptr) {
        return;
    }
    const char* start = text;
    while (IsSpace(*start)) {
        ++start;
    }
    std::memmove(text, start, std::strlen(start) + 1);
}

void StringTrim(char* text) {
    StringTrimRight(text);
    StringTrimLeft(text);
}

void PathAppend(char* path, char* more) {
    if (path == nullptr || more == nullptr) {
        return;
    }
    const size_t length = std::strlen(path);
    const bool separated = length == 0 || path[length - 1] == '/' || path[length - 1] == '\\';
    if (!separated) {
        std::strcat(path, "/");
    }
    std::strcat(path, more);
}

char* PathFindFileName(const char* path) {
    if (path == nullptr || *path == '\0') {
        return nullptr;
    }
    const size_t length = std::strlen(path);
    if (length == 1) {
        return const_cast<char*>(path);
    }
    // The scan stops at the first character, whether or not that is a "/".  A name without a
    // directory therefore loses its first character.
    size_t slash = length - 2;
    while (slash > 0 && path[slash] != '/') {
        --slash;
    }
    return const_cast<char*>(path + slash + 1);
}

char* PathFindExtension(const char* path) {
    return path == nullptr ? nullptr : const_cast<char*>(std::strrchr(path, '.'));
}

void DeleteFile(char* path) {
    if (path != nullptr) {
        unlink(path);
    }
}

void GetPathName(const char* path, char* out) {
    if (out == nullptr) {
        return;
    }
    CopyAndFill(out, path == nullptr ? "" : path, kPathSize);
    char* lastSlash = std::strrchr(out, '/');
    if (lastSlash != nullptr) {
        *lastSlash = '\0';
    } else {
        CopyAndFill(out, "./", kPathSize);
    }
}

void GetRecordName(const char* path, char* out) {
    if (out == nullptr) {
        return;
    }
    const char* fileName = PathFindFileName(path);
    CopyAndFill(out, fileName == nullptr ? "" : fileName, kRecordNameSize);
    char* extension = PathFindExtension(out);
    if (extension != nullptr) {
        std::memset(extension, 0, static_cast<size_t>(out + kRecordNameSize - extension));
    }
}
