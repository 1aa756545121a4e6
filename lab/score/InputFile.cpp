#include "lab/score/InputFile.h"

#include "lab/common/Failure.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <sys/stat.h>

namespace lab::score {
namespace {

constexpr std::size_t kMostBytes = 256U << 20; // twenty million beats, or half a year

struct Close {
    void operator()(FILE* file) const { std::fclose(file); }
};

[[noreturn]] void FailReading(const std::string& path) {
    Fail(kMaterial, path, Format("cannot be read: %s.", std::strerror(errno)), "Check the path.");
}

// The size of an ordinary file. Opening a pipe would block until its writer opens it.
std::size_t SizeOf(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        FailReading(path);
    }
    if (!S_ISREG(status.st_mode)) {
        Fail(kMaterial, path, S_ISDIR(status.st_mode) ? "is a directory." : "is not a file.",
             "Give two files or two folders.");
    }
    const auto bytes = static_cast<std::size_t>(status.st_size);
    if (bytes > kMostBytes) {
        Fail(kMaterial, path,
             Format("has %zu bytes, and lists are read up to %zu.", bytes, kMostBytes),
             "Is it a list of annotations?");
    }
    return bytes;
}

} // namespace

std::string ReadInput(const std::string& path) {
    std::string bytes(SizeOf(path), '\0');
    const std::unique_ptr<FILE, Close> file(std::fopen(path.c_str(), "rb"));
    if (!file) {
        FailReading(path);
    }
    bytes.resize(std::fread(bytes.data(), 1, bytes.size(), file.get()));
    if (std::ferror(file.get()) != 0) {
        FailReading(path);
    }
    return bytes;
}

std::string StemOf(const std::string& path) {
    return std::filesystem::path(path).stem().string();
}

std::string HeaderOf(const std::string& path, const std::string& suffix) {
    const std::string ending = EndingOf(suffix);
    const std::string name = std::filesystem::path(path).filename().string();
    return !ending.empty() && EndsWith(name, ending)
               ? path.substr(0, path.size() - ending.size()) + ".hea"
               : std::filesystem::path(path).replace_extension(".hea").string();
}

std::string EndingOf(const std::string& suffix) {
    return suffix.empty() || suffix.front() == '.' ? suffix : "." + suffix;
}

bool EndsWith(const std::string& text, const std::string& ending) {
    return text.size() > ending.size() &&
           text.compare(text.size() - ending.size(), ending.size(), ending) == 0;
}

} // namespace lab::score
