#pragma once

#include "lab/material/readers/Files.h"

#include <string>

namespace lab {

enum class MaterialKind {
    kWfdb,
    kAha,
    kCse,
    kNative,
    kEdf,
    kEdfFourChest,
    kCsv,
    kBuiltin,
    kWaveform
};

// The kinds' names on the command line and in results.
const char* KindName(MaterialKind kind);

// Decides how to read `name`: a waveform's or a built-in record's name; otherwise by `format` when
// that is given, otherwise by the file's extension and, for ".txt", by what its first lines look
// like. Fails when that is not enough.
MaterialKind Recognise(const std::string& name, const std::string& format);

} // namespace lab
