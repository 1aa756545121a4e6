#include "engine/Utils.h"

#include "platform/LastError.h"
#include "platform/Text.h"
#include "WFDB/Ownership.h"
#include "WFDB/Utils.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

namespace {

// -1 for a file without a size.
long MeasureFile(FILE* file) {
    if (std::fseek(file, 0, SEEK_END) != 0) {
        return -1;
    }
    const long size = std::ftell(file);
    return std::fseek(file, 0, SEEK_SET) == 0 ? size : -1;
}

bool IsLineEnd(unsigned char character) {
    return character == '\r' || character == '\n';
}

} // namespace

bool ReadFileBinaryData(const char* path, unsigned char** buffer, unsigned int* size) {
    FileImage image;
    if (buffer == nullptr || size == nullptr || !ReadFileImage(path, image)) {
        return false;
    }
    *buffer = image.Data.release();
    *size = image.Size;
    return true;
}

bool WriteFileBinaryData(const char* path, unsigned char* buffer, unsigned int size) {
    if (path == nullptr || (buffer == nullptr && size != 0)) {
        return false;
    }
    OwnedFile file = CreateOrdinaryFile(path);
    if (file == nullptr) {
        return false;
    }
    const bool written = size == 0 || std::fwrite(buffer, 1, size, file.get()) == size;
    return CloseWritten(std::move(file), path) && written;
}

int ToInt16(int value) {
    return value <= 32767 ? value : value - 65536;
}

void StringToken(char* line, const std::string& delimiters, std::vector<std::string>& tokens) {
    if (line == nullptr) {
        return;
    }
    std::array<bool, 256> delimiterTable = {};
    for (const char delimiter : delimiters) {
        delimiterTable[static_cast<unsigned char>(delimiter)] = true;
    }
    const auto isDelimiter = [&delimiterTable](char character) {
        return delimiterTable[static_cast<unsigned char>(character)];
    };
    const char* end = line + std::strlen(line);
    const char* field = std::find_if_not<const char*>(line, end, isDelimiter);
    while (field != end) {
        const char* fieldEnd = std::find_if(field, end, isDelimiter);
        tokens.emplace_back(field, fieldEnd);
        field = std::find_if_not(fieldEnd, end, isDelimiter);
    }
}

bool ReadTextLine(unsigned char*& cursor, unsigned char* end, char* out, unsigned long size) {
    if (size == 0) {
        return false;
    }
    std::memset(out, 0, size);
    unsigned long length = 0;
    while (cursor != end) {
        const unsigned char* line = cursor;
        cursor = std::find_if(cursor, end, IsLineEnd);
        const auto taken = std::min(static_cast<unsigned long>(cursor - line), size - 1 - length);
        std::memcpy(out + length, line, taken);
        length += taken;
        if (!std::all_of<const unsigned char*>(line, cursor, IsSpace)) {
            StringTrimRight(out);
            return true;
        }
        if (cursor != end) {
            ++cursor;
        }
    }
    return false;
}

bool ReadFileImage(const char* path, FileImage& image) {
    const OwnedFile file(OpenOrdinaryFile(path));
    if (file == nullptr) {
        return false;
    }
    const long size = MeasureFile(file.get());
    if (size < 0 || size > long{UINT_MAX}) {
        SetLastFailure(RAVO_ERROR_UNSUPPORTED, "%s: larger than 4 GB", path);
        return false;
    }
    const auto count = static_cast<size_t>(size);
    image.Data.reset(new (std::nothrow) unsigned char[count]);
    image.Size = static_cast<unsigned int>(size);
    if (image.Data == nullptr) {
        SetLastFailure(RAVO_ERROR_MEMORY, "%s: no memory for its %ld bytes", path, size);
        return false;
    }
    if (std::fread(image.Data.get(), 1, count, file.get()) != count) {
        SetReadFailure(path, errno);
        return false;
    }
    return true;
}

// Plain decimal numbers, which are nearly all numbers of a file, take the fast path.
double ToDouble(const char* text, const char* end) {
    double value = 0.0;
    const auto [rest, error] = std::from_chars(text, end, value);
    const bool hexadecimal = *rest == 'x' || *rest == 'X';
    return error == std::errc() && !hexadecimal ? value : ClassicLocale::ToDouble(text);
}

double ToDouble(const char* text) {
    return ToDouble(text, text + std::strlen(text));
}

std::string GetMaterialName(const char* path) {
    const char* fileName = PathFindFileName(path);
    const std::string name = fileName == nullptr ? "" : fileName;
    return name.substr(0, name.rfind('.'));
}
