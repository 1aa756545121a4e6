#include "lab/serve/Http.h"

namespace lab::serve {
namespace {

std::string OnlyValue(const std::multimap<std::string, std::string>& values,
                      const std::string& name) {
    return values.count(name) == 1 ? values.find(name)->second : std::string();
}

} // namespace

std::string HttpRequest::Header(const std::string& name) const {
    return OnlyValue(headers, name);
}

std::string HttpRequest::Query(const std::string& name) const {
    return OnlyValue(query, name);
}

const char* ReasonPhrase(int status) {
    static const std::map<int, const char*> kPhrases = {
        {200, "OK"},
        {202, "Accepted"},
        {400, "Bad Request"},
        {401, "Unauthorized"},
        {403, "Forbidden"},
        {404, "Not Found"},
        {405, "Method Not Allowed"},
        {408, "Request Timeout"},
        {409, "Conflict"},
        {413, "Payload Too Large"},
        {415, "Unsupported Media Type"},
        {422, "Unprocessable Entity"},
        {431, "Request Header Fields Too Large"},
        {500, "Internal Server Error"},
        {503, "Service Unavailable"},
    };
    const auto found = kPhrases.find(status);
    return found == kPhrases.end() ? "Error" : found->second;
}

} // namespace lab::serve
