#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

// Requests and answers as the routes see them.
namespace lab::serve {

struct HttpRequest {
    std::string method;
    std::string path; // decoded, without the query
    std::multimap<std::string, std::string> query;
    std::multimap<std::string, std::string> headers; // names in lower case
    std::string body;
    std::string localAddress;                       // to which the client connected
    std::chrono::steady_clock::time_point deadline; // by which it must be answered or refused

    // The value of a header or of a query's field that occurs exactly once; otherwise empty.
    std::string Header(const std::string& name) const;
    std::string Query(const std::string& name) const;
    bool HasHeader(const std::string& name) const { return headers.count(name) != 0; }
};

struct HttpAnswer {
    int status = 200;
    std::string type = "application/json";
    std::string body;
    std::vector<std::pair<std::string, std::string>> headers;
    bool isEventStream = false; // the connection becomes that of a viewer
};

using HttpHandler = std::function<HttpAnswer(const HttpRequest&)>;

// "Not Found"; also of 431 and the others that are used here.
const char* ReasonPhrase(int status);

} // namespace lab::serve
