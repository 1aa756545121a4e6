#pragma once

#include <string>

namespace lab {

enum class MaterialKind { kWfdb, kAha, kCse, kNative, kEdf, kEdfFourChest, kBuiltin, kWaveform };

// The kinds' names on the command line and in results.
const char* KindName(MaterialKind kind);

// Decides how to read `name`: a waveform's or a built-in record's name, else by `format` when that
// is given, else by the file's extension and, for ".txt", by what its first lines look like. Fails
// when that is not enough.
MaterialKind Recognise(const std::string& name, const std::string& format);

// The file's extension in lower case with its dot, empty without one.
std::string Extension(const std::string& path);

// Fails when `path` is missing, which `cure` helps against, not a file or not readable.
void RequireFile(const std::string& path, const std::string& cure = "Check the path.");

} // namespace lab
