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

// By record name, the files whose names end in ".SUFFIX".
using Folder = std::map<std::string, std::string>;

Folder FilesIn(const std::string& path, const std::string& suffix) {
    const std::string ending = suffix.empty() || suffix.front() == '.' ? suffix : "." + suffix;
    Folder files;
    std::error_code error;
    for (fs::directory_iterator entry(path, error), end; !error && entry != end;
         entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        const bool ends = name.size() > ending.size() &&
                          name.compare(name.size() - ending.size(), ending.size(), ending) == 0;
        std::error_code ignored;
        if (ends && !entry->is_directory(ignored)) {
            files[name.substr(0, name.size() - ending.size())] = entry->path().string();
        }
    }
    if (error) {
        Fail(kMaterial, path, "cannot be read: " + error.message() + ".");
    }
    return files;
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

// ---- The sampling frequency ---------------------------------------------------------------------

std::optional<Rational> RateBeside(const std::string& path) {
    const std::string header = Sibling(path, ".hea");
    std::error_code ignored;
    return fs::exists(header, ignored) ? std::optional(ParseHeaderRate(ReadInput(header), header))
                                       : std::nullopt;
}

Rational RateFor(const std::string& path, const std::string& other,
                 std::vector<std::string>& remarks) {
    if (const auto rate = RateBeside(path)) {
        return *rate;
    }
    const bool isSameRecord = StemOf(path) == StemOf(other);
    if (const auto rate = isSameRecord ? RateBeside(other) : std::nullopt) {
        remarks.push_back(Printable(path) +
                          ": has no header beside it; the sampling frequency is "
                          "taken from " +
                          Printable(Sibling(other, ".hea")));
        return *rate;
    }
    Fail(kMaterial, path, "has no header beside it, so its sampling frequency is not known.",
         "Put " + Printable(Sibling(path, ".hea")) + " there.");
}

// ---- Lists --------------------------------------------------------------------------------------

void Remark(const std::string& path, const std::string& remark, std::vector<std::string>& remarks) {
    if (!remark.empty()) {
        remarks.push_back(Printable(path) + ": " + remark);
    }
}

AnnotationList ReadAnnotationFile(const std::string& path, const std::string& other,
                                  std::vector<std::string>& remarks) {
    AnnotationContent content = ParseAnnotations(ReadInput(path), path);
    Remark(path, content.remark, remarks);
    const Rational rate = content.rate ? *content.rate : RateFor(path, other, remarks);
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
    if (fs::is_directory(named.reference, ignored) && fs::is_directory(named.test, ignored)) {
        return InputsInFolders(named, referenceSuffix, testSuffix, remarks);
    }
    return {{StemOf(named.reference), named.reference, named.test}};
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

AnnotationList ReadList(const std::string& path, const std::string& other,
                        std::vector<std::string>& remarks) {
    const std::string suffix = fs::path(path).extension().string();
    return suffix == ".csv" || suffix == ".CSV" ? ReadCsv(path, remarks)
                                                : ReadAnnotationFile(path, other, remarks);
}

} // namespace lab::score
