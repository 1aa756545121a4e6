#pragma once

#include <cstddef>

// String and path helpers of the record library.  Strings are terminated and changed in place;
// white space is what isspace accepts in the C locale.

void StringTrimRight(char* text);
void StringTrimLeft(char* text);
void StringTrim(char* text);

// Appends `more` to `path`, with a "/" between them unless `path` is empty or already ends in "/"
// or "\".  The caller provides the room.
void PathAppend(char* path, char* more);

// What follows the last "/" of `path`, not looking at the last character.  Null for an empty path.
// A path of several characters without any "/" loses its first character: callers pass paths that
// name a directory.
char* PathFindFileName(const char* path);

// The last "." of the whole path and what follows it; null when there is none.  A dot in a
// directory name counts.
char* PathFindExtension(const char* path);

void DeleteFile(char* path);

// The directory of `path` without its last "/", at most 255 characters, into the 256 bytes of
// `out`; "./" when `path` has no "/".
void GetPathName(const char* path, char* out);

// Room for a record name of 15 characters.
constexpr std::size_t kRecordNameSize = 16;

// The file name of `path` up to its last ".", at most 15 characters, into the 16 bytes of `out`.
// The rest of `out` is zero.
void GetRecordName(const char* path, char* out);
