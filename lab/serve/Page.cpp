#include "lab/serve/Page.h"

#include <array>
#include <openssl/evp.h>

namespace lab::serve {

// Made from the folder page/ when the program is built.
extern const char* const kPageHtml;

namespace {

// The text between the first opening tag and the closing tag after it.
std::string Between(const std::string& text, const std::string& open, const std::string& close) {
    const std::size_t begin = text.find(open) + open.size();
    return text.substr(begin, text.find(close, begin) - begin);
}

std::string DigestSource(const std::string& text) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    std::array<unsigned char, 2 * digest.size()> encoded{};
    unsigned int length = 0;
    EVP_Digest(text.data(), text.size(), digest.data(), &length, EVP_sha256(), nullptr);
    EVP_EncodeBlock(encoded.data(), digest.data(), static_cast<int>(length));
    return std::string("'sha256-") + reinterpret_cast<const char*>(encoded.data()) + "'";
}

std::string MakePolicy() {
    const std::string& page = PageText();
    return "default-src 'none'; connect-src 'self'; img-src data:; script-src " +
           DigestSource(Between(page, "<script type=\"module\">", "</script>")) + "; style-src " +
           DigestSource(Between(page, "<style>", "</style>")) +
           "; base-uri 'none'; form-action 'none'; frame-ancestors 'none'";
}

} // namespace

const std::string& PageText() {
    static const std::string text = kPageHtml;
    return text;
}

const std::string& PagePolicy() {
    static const std::string policy = MakePolicy();
    return policy;
}

} // namespace lab::serve
