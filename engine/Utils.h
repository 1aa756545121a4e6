#pragma once

#include <memory>
#include <string>
#include <vector>

// Reading files and text, as the loaders of database files need it.

// Reads a whole file into a new array, which the caller releases with delete[]; nothing is appended
// to it.  False, with the out arguments untouched, when `path` is not an ordinary file, cannot be
// read whole or is too large for the size's type.
bool ReadFileBinaryData(const char* path, unsigned char** buffer, unsigned int* size);

// Replaces a file by `size` bytes.  False when they could not all be written.
bool WriteFileBinaryData(const char* path, unsigned char* buffer, unsigned int size);

// The signed value of a word formed from two bytes, 0 to 65535.  Negative values and those up to
// 32767 are returned unchanged.
int ToInt16(int value);

// Appends the fields of `line` to `tokens`.  Any run of delimiters separates two fields; there are
// no empty ones.
void StringToken(char* line, const std::string& delimiters, std::vector<std::string>& tokens);

// Reads the next line that is not blank out of a text between `cursor` and `end` and moves `cursor`
// to that line's terminator; lines end in CR, LF or CR LF.  `out`, all of which is zeroed first,
// gets at most size - 1 characters of the line and then loses the white space at their end.  False
// at the end of the text.
// The white space of skipped lines stays in front of the line returned.  A lead name after an
// indented blank line is therefore not recognised in the native text format.
bool ReadTextLine(unsigned char*& cursor, unsigned char* end, char* out, unsigned long size);

// A file image as ReadFileBinaryData makes it.
struct FileImage {
    std::unique_ptr<unsigned char[]> Data;
    unsigned int Size = 0;

    unsigned char* Begin() const { return Data.get(); }
    unsigned char* End() const { return Data.get() + Size; }
};

bool ReadFileImage(const char* path, FileImage& image);

// The decimal number that `text` begins with, in any form that strtod takes and with the decimal
// point of the C locale; 0 when there is none.  `end` is its terminating zero.
double ToDouble(const char* text, const char* end);
double ToDouble(const char* text);

// The name of the record in the file `path`: the file name up to its last ".".
std::string GetMaterialName(const char* path);
