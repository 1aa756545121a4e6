#pragma once

#include "lab/score/Annotation.h"

#include <string>
#include <vector>

namespace lab::score {

// One record's two files.
struct Input {
    std::string record; // the reference's name without folder and suffix
    std::string reference;
    std::string test;
};

// The records of two files, or of two folders, where the suffixes say which files count. Fails with
// status 2 when a reference has no partner, a folder holds no reference or only one side is a
// folder. A test file without a reference becomes a remark.
std::vector<Input> FindInputs(const Input& named, const std::string& referenceSuffix,
                              const std::string& testSuffix, std::vector<std::string>& remarks);

// One side's files: the file itself, or those of a folder whose names end in the suffix, in the
// order of their names. Fails with status 2 when the folder cannot be read.
std::vector<std::string> FilesOfSide(const std::string& path, const std::string& suffix);

// One side of a record.
struct ListFile {
    std::string path;
    std::string header; // may be missing
};

// Reads one side: text where the name ends in ".csv", a WFDB annotation file otherwise. The
// sampling frequency is that of its header, else of the `other` side's header of the same name.
// Each remark is made once, even if both sides are the same file.
AnnotationList ReadList(const ListFile& file, const ListFile& other,
                        std::vector<std::string>& remarks);

} // namespace lab::score
