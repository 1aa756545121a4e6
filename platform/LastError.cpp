#include "platform/LastError.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

thread_local Failure t_failure;

bool ContinuesCharacter(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

// The greatest length up to `limit` that does not split a UTF-8 character.  Text that is not UTF-8
// is cut anywhere: a character has at most three continuation bytes.
std::size_t WholeCharacters(const char* text, std::size_t limit) {
    std::size_t length = limit;
    while (length > 0 && limit - length < 3 && ContinuesCharacter(text[length])) {
        --length;
    }
    return ContinuesCharacter(text[length]) ? limit : length;
}

} // namespace

void CopyTruncated(char* destination, std::size_t size, const char* text) {
    std::size_t length = strnlen(text, size);
    if (length == size) {
        length = WholeCharacters(text, size - 1);
    }
    std::memcpy(destination, text, length);
    destination[length] = 0;
}

void SetLastFailure(RAVO_ERROR code, const char* format, ...) {
    const int error = errno;
    char text[kFailureTextSize + 1] = {}; // one more, to see whether it was cut
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    t_failure.code = code;
    CopyTruncated(t_failure.text, sizeof t_failure.text, text);
    errno = error;
}

void SetLastFailure(const Failure& failure) {
    t_failure = failure;
}

const Failure& LastFailure() {
    return t_failure;
}

void CSharedFailure::Keep() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_failure = t_failure;
}

void CSharedFailure::Clear() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_failure.code = RAVO_ERROR_NONE;
}

bool CSharedFailure::Fetch() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_failure.code == RAVO_ERROR_NONE) {
        return false;
    }
    t_failure = m_failure;
    return true;
}

int RAVOGetLastError(char* text, size_t size) {
    if (text != nullptr && size > 0) {
        CopyTruncated(text, size, t_failure.text);
    }
    return t_failure.code;
}
