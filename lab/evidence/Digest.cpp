#include "lab/evidence/Digest.h"

#include "lab/common/Failure.h"

#include <openssl/evp.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>
#include <sys/stat.h>
#include <vector>

namespace lab {
namespace {

constexpr std::size_t kPiece = 1 << 16;

// SHA-256 of what is given to it, piece by piece.
class Sha256Sum {
  public:
    Sha256Sum() : m_context(EVP_MD_CTX_new(), EVP_MD_CTX_free) {
        if (!m_context || EVP_DigestInit_ex(m_context.get(), EVP_sha256(), nullptr) != 1) {
            Fail(kMaterial, "SHA-256", "cannot be computed on this machine.");
        }
    }

    void Add(const char* bytes, std::size_t count) {
        EVP_DigestUpdate(m_context.get(), bytes, count);
    }

    std::string Hexadecimal() {
        std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
        unsigned int size = 0;
        EVP_DigestFinal_ex(m_context.get(), digest.data(), &size);
        std::string text;
        for (unsigned int i = 0; i < size; ++i) {
            text += Format("%02x", digest[i]);
        }
        return text;
    }

  private:
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> m_context;
};

bool IsDigest(const std::string& text) {
    return text.size() == 64 && text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

} // namespace

FileDigest DigestFile(const std::string& path) {
    FileDigest digest{path, {}, 0};
    errno = 0;
    std::ifstream file(path, std::ios::binary);
    Sha256Sum sum;
    std::vector<char> piece(kPiece);
    while (file) {
        file.read(piece.data(), static_cast<std::streamsize>(piece.size()));
        sum.Add(piece.data(), static_cast<std::size_t>(file.gcount()));
        digest.bytes += file.gcount();
    }
    if (!file.eof() || file.bad()) {
        Fail(kMaterial, path, Format("cannot be read: %s.", std::strerror(errno)));
    }
    digest.sha256 = sum.Hexadecimal();
    return digest;
}

std::string Sha256(const std::string& bytes) {
    Sha256Sum sum;
    sum.Add(bytes.data(), bytes.size());
    return sum.Hexadecimal();
}

std::string StateOf(const std::string& path) {
    struct stat state {};
    if (::stat(path.c_str(), &state) != 0) {
        return {};
    }
    return Format(
        "%llu %llu %lld %lld.%09ld %lld.%09ld", static_cast<unsigned long long>(state.st_dev),
        static_cast<unsigned long long>(state.st_ino), static_cast<long long>(state.st_size),
        static_cast<long long>(state.st_mtim.tv_sec), state.st_mtim.tv_nsec,
        static_cast<long long>(state.st_ctim.tv_sec), state.st_ctim.tv_nsec);
}

// One file per line: the digest, a blank, a blank or an asterisk, and the name.
std::map<std::string, std::string> PublishedDigests(const std::string& folder) {
    std::map<std::string, std::string> published;
    std::ifstream file(folder + "/SHA256SUMS.txt");
    for (std::string line; std::getline(file, line);) {
        const auto blank = line.find_first_of(" \t");
        const auto name = line.find_first_not_of(" \t*", blank);
        if (name != std::string::npos && IsDigest(line.substr(0, blank))) {
            const auto last = line.find_last_not_of(" \t\r");
            published[line.substr(name, last - name + 1)] = line.substr(0, blank);
        }
    }
    return published;
}

} // namespace lab
