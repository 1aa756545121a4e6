#pragma once

#include "tests/support/Files.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <system_error>

// Records for the benchmarks of the record library, in a directory that is removed with the
// process.
class RecordMaker {
  public:
    std::string File(const std::string& name) const { return m_directory / name; }

    // Two signals at 360 Hz in format 212: noise around the middle of the converter's range.
    std::string MakeRecord(const std::string& name, long frames) const {
        FILE* header = std::fopen(File(name + ".hea").c_str(), "w");
        std::fprintf(header, "%s 2 360 %ld\n", name.c_str(), frames);
        for (const char* lead : {"MLII", "V5"}) {
            std::fprintf(header, "%s.dat 212 200 11 1024 0 0 0 %s\n", name.c_str(), lead);
        }
        std::fclose(header);
        FILE* data = std::fopen(File(name + ".dat").c_str(), "wb");
        std::mt19937 random(1);
        for (long frame = 0; frame < frames; ++frame) {
            const auto bits = static_cast<uint32_t>(random());
            const uint32_t first = 1024 + bits % 256;
            const uint32_t second = 1024 + bits / 256 % 256;
            std::putc(static_cast<int>(first % 256), data);
            std::putc(static_cast<int>(first / 256 + second / 256 * 16), data);
            std::putc(static_cast<int>(second % 256), data);
        }
        std::fclose(data);
        return File(name);
    }

    // An annotation file with `count` normal beats 300 frames apart, every tenth one with a text.
    std::string MakeAnnotations(const std::string& name, int count) const {
        FILE* file = std::fopen(File(name).c_str(), "wb");
        for (int i = 0; i < count; ++i) {
            PutWord(0x0400 + 300, file);
            if (i % 10 == 0) {
                PutWord(0xFC04, file);
                std::fputs("text", file);
            }
        }
        PutWord(0, file);
        std::fclose(file);
        return File(name);
    }

    // The path of record 100: the public one if it exists, otherwise one of the same size.
    std::string Record100() const {
        const char* directory = std::getenv("RAVO_TEST_DATA");
        const std::string path = directory == nullptr ? "" : std::string(directory) + "/100";
        std::error_code ignored;
        if (std::filesystem::exists(path + ".dat", ignored)) {
            return path;
        }
        MakeAnnotations("100.atr", 2160);
        return MakeRecord("100", 650000);
    }

  private:
    static void PutWord(int word, FILE* file) {
        std::putc(word % 256, file);
        std::putc(word / 256, file);
    }

    Scratch m_directory;
};
