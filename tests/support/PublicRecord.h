#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

// The path of a public record, which is not part of the project; empty when it is missing.
inline std::string PublicRecord(const std::string& name) {
    const char* given = std::getenv("RAVO_TEST_DATA");
    const std::string path =
        std::string(given != nullptr ? given : RAVO_TEST_DATA_DIRECTORY) + "/" + name;
    std::error_code ignored;
    return std::filesystem::exists(path, ignored) ? path : "";
}
