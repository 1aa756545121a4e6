#include "lab/score/Input.h"

#include "lab/common/Failure.h"
#include "lab/score/AnnotationFile.h"
#include "lab/score/CsvAnnotations.h"
#include "lab/score/HeaderRate.h"
#include "lab/score/InputFile.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <optional>
#include <utility>

namespace lab::score {
namespace {

namespace fs = std::filesystem;

// ---- Folders ------------------------------------------------------------------------------------

// The files whose names end in ".SUFFIX", by record name.
using Folder = std::map<std::string, std::string>;

Folder FilesIn(const std::string& path, const std::string& suffix) {
    const std::string ending = EndingOf(suffix);
    Folder files;
    std::error_code error;
    for (fs::directory_iterator entry(path, error), end; !error && entry != end;
         entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        std::error_code ignored;
        if (EndsWith(name, ending) && !entry->is_directory(ignored)) {
            files[name.substr(0, name.size() - ending.size())] = entry->path().string();
        }
    }
    if (error) {
        Fail(kMaterial, path, "cannot be read: " + error.message() + ".");
    }
    return files;
}

[[noreturn]] void FailUnlike(const std::string& path, const std::string& folder) {
    std::error_code ignored;
    if (!fs::exists(path, ignored)) {
        Fail(kMaterial, path, "does not exist.", "Check the path.");
    }
    Fail(kMaterial, path, "is not a folder, but " + Printable(folder) + " is.",
         "Give two files or two folders.");
}

[[noreturn]] void FailMissing(const std::string& reference, const Input& named,
                              const std::string& suffix) {
    Fail(kMaterial, reference, "has no counterpart in " + Printable(named.test) + ".",
         "A file of the same name with the suffix " + suffix +
             " belongs there; --test-suffix "
             "names another suffix.");
}

std::vector<Input> InputsInFolders(const Input& named, const std::string& referenceSuffix,
                                   const std::string& testSuffix,
                                   std::vector<std::string>& remarks) {
    const Folder references = FilesIn(named.reference, referenceSuffix);
    Folder tests = FilesIn(named.test, testSuffix);
    if (references.empty()) {
        Fail(kMaterial, named.reference, "holds no file with the suffix " + referenceSuffix + ".",
             "--reference-suffix names another suffix.");
    }
    std::vector<Input> inputs;
    for (const auto& [record, path] : references) {
        const auto test = tests.find(record);
        if (test == tests.end()) {
            FailMissing(path, named, testSuffix);
        }
        inputs.push_back({record, path, test->second});
        tests.erase(test);
    }
    for (const auto& [record, path] : tests) {
        remarks.push_back(Printable(path) + ": has no reference and is left out");
    }
    return inputs;
}

void Remark(const std::string& path, const std::string& text, std::vector<std::string>& remarks) {
    const std::string remark = Printable(path) + ": " + text;
    if (!text.empty() && std::find(remarks.begin(), remarks.end(), remark) == remarks.end()) {
        remarks.push_back(remark);
    }
}

// ---- The sampling frequency ---------------------------------------------------------------------

std::optional<Rational> RateIn(const std::string& header) {
    std::error_code ignored;
    return fs::exists(header, ignored) ? std::optional(ParseHeaderRate(ReadInput(header), header))
                                       : std::nullopt;
}

Rational RateFor(const ListFile& file, const ListFile& other, std::vector<std::string>& remarks) {
    if (const auto rate = RateIn(file.header)) {
        return *rate;
    }
    const bool isSameRecord = StemOf(file.header) == StemOf(other.header);
    if (const auto rate = isSameRecord ? RateIn(other.header) : std::nullopt) {
        Remark(file.path,
               "has no header beside it; the sampling frequency is taken from " +
                   Printable(other.header),
               remarks);
        return *rate;
    }
    Fail(kMaterial, file.path, "has no header beside it, so its sampling frequency is not known.",
         "Put " + Printable(file.header) + " there.");
}

// ---- Lists --------------------------------------------------------------------------------------

// Including the dot, in lower case.
std::string SuffixOf(const std::string& path) {
    std::string suffix = fs::path(path).extension().string();
    std::transform(suffix.begin(), suffix.end(), suffix.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    return suffix;
}

// Fails for other files of a record: any bytes can be read as annotations.
void RequireAnnotations(const std::string& path) {
    const std::string suffix = SuffixOf(path);
    if (suffix == ".hea" || suffix == ".dat") {
        Fail(kMaterial, path,
             suffix == ".hea" ? "is a record's header and holds no annotations."
                              : "holds a record's signals and no annotations.",
             "Give the annotation file, such as 100.atr.");
    }
}

AnnotationList ReadAnnotationFile(const ListFile& file, const ListFile& other,
                                  std::vector<std::string>& remarks) {
    RequireAnnotations(file.path);
    AnnotationContent content = ParseAnnotations(ReadInput(file.path), file.path);
    Remark(file.path, content.remark, remarks);
    const Rational rate = content.rate ? *content.rate : RateFor(file, other, remarks);
    AnnotationList list{std::move(content.annotations), Rational(1) / rate};
    PutInOrder(list);
    return list;
}

AnnotationList ReadCsv(const std::string& path, std::vector<std::string>& remarks) {
    CsvContent content = ParseCsv(ReadInput(path), path);
    Remark(path, content.remark, remarks);
    return std::move(content.list);
}

} // namespace

std::vector<Input> FindInputs(const Input& named, const std::string& referenceSuffix,
                              const std::string& testSuffix, std::vector<std::string>& remarks) {
    std::error_code ignored;
    const bool isFolder = fs::is_directory(named.reference, ignored);
    if (isFolder != fs::is_directory(named.test, ignored)) {
        isFolder ? FailUnlike(named.test, named.reference)
                 : FailUnlike(named.reference, named.test);
    }
    if (isFolder) {
        return InputsInFolders(named, referenceSuffix, testSuffix, remarks);
    }
    return {{StemOf(HeaderOf(named.reference, referenceSuffix)), named.reference, named.test}};
}

std::vector<std::string> FilesOfSide(const std::string& path, const std::string& suffix) {
    std::error_code ignored;
    if (!fs::is_directory(path, ignored)) {
        return {path};
    }
    std::vector<std::string> files;
    for (const auto& [record, file] : FilesIn(path, suffix)) {
        files.push_back(file);
    }
    return files;
}

AnnotationList ReadList(const ListFile& file, const ListFile& other,
                        std::vector<std::string>& remarks) {
    return SuffixOf(file.path) == ".csv" ? ReadCsv(file.path, remarks)
                                         : ReadAnnotationFile(file, other, remarks);
}

} // namespace lab::score
