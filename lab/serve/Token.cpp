#include "lab/serve/Token.h"

#include "lab/common/Failure.h"
#include "lab/evidence/Digest.h"
#include "lab/material/Leads.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <openssl/crypto.h>
#include <sys/stat.h>
#include <unistd.h>

namespace lab::serve {
namespace {

// Whether a browser can send it in a header as it is.
bool IsVisible(char c) {
    return c > ' ' && c <= '~';
}

// The file is checked and read through one descriptor, so that it cannot be replaced in between.
std::string ReadPrivateFile(const std::string& path) {
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (file == -1) {
        Fail(kUsage, path, Format("cannot be read: %s.", std::strerror(errno)),
             "It holds the token, one line: openssl rand -hex 32 > FILE; chmod 600 FILE");
    }
    struct stat status {};
    ::fstat(file, &status);
    constexpr mode_t kOthers = S_IRWXG | S_IRWXO;
    std::array<char, 4097> text{};
    const ssize_t count = ::read(file, text.data(), text.size());
    ::close(file);
    if (!S_ISREG(status.st_mode) || (status.st_uid != ::geteuid() && status.st_uid != 0)) {
        Fail(kUsage, path, "is not a file of this user's own.");
    }
    if ((status.st_mode & kOthers) != 0) {
        Fail(kUsage, path, "can be read or changed by others than its owner.",
             "Restrict it: chmod 600 " + path);
    }
    return std::string(text.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
}

} // namespace

Token::Token(const std::string& path) {
    std::string text = ReadPrivateFile(path);
    text.erase(text.find_last_not_of(" \t\r\n") + 1);
    const bool isWord =
        !text.empty() && text.size() <= 4096 && std::all_of(text.begin(), text.end(), IsVisible);
    if (!isWord) {
        Fail(kUsage, path, "does not hold a token: one line of visible ASCII characters.",
             "Make one: openssl rand -hex 32 > " + path);
    }
    m_digest = Sha256(text);
}

bool Token::IsIn(const std::string& authorization) const {
    constexpr const char* kScheme = "bearer ";
    const std::size_t length = std::strlen(kScheme);
    const bool isBearer = LowerCase(authorization.substr(0, length)) == kScheme;
    const std::string digest = Sha256(isBearer ? authorization.substr(length) : std::string());
    return CRYPTO_memcmp(digest.data(), m_digest.data(), m_digest.size()) == 0 && isBearer;
}

} // namespace lab::serve
