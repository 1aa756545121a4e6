#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace lab {

// A file as it was when it was used.
struct FileDigest {
    std::string path;
    std::string sha256; // 64 hexadecimal digits
    int64_t bytes = 0;
};

// Reads the whole file. Fails with the status for unusable material when it cannot be read.
FileDigest DigestFile(const std::string& path);

std::string Sha256(const std::string& bytes);

// Which file it is, its size and the times at which it was last changed: while this stays the same,
// so do the bytes. Empty for a missing file.
std::string StateOf(const std::string& path);

// The digests that a folder's SHA256SUMS.txt publishes, by file name; empty without one.
std::map<std::string, std::string> PublishedDigests(const std::string& folder);

} // namespace lab
