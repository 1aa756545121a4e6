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

struct Close {
    void operator()(FILE* file) const { std::fclose(file); }
};

[[noreturn]] void FailReading(const std::string& path) {
    Fail(kMaterial, path, Format("cannot be read: %s.", std::strerror(errno)), "Check the path.");
}

// The size of an ordinary file. Opening a pipe would wait for its writer.
std::size_t SizeOf(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        FailReading(path);
    }
    if (!S_ISREG(status.st_mode)) {
        Fail(kMaterial, path, S_ISDIR(status.st_mode) ? "is a directory." : "is not a file.",
             "Give two files or two folders.");
    }
    return static_cast<std::size_t>(status.st_size);
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

std::string Sibling(const std::string& path, const std::string& suffix) {
    return std::filesystem::path(path).replace_extension(suffix).string();
}

} // namespace lab::score
