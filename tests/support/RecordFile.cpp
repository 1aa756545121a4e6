#include "tests/support/RecordFile.h"

#include <array>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace {

RecordFile::Signal ParseSignal(const std::string& line) {
    RecordFile::Signal signal;
    std::array<char, 256> file{};
    std::array<char, 64> unit{};
    std::array<char, 64> description{};
    const int fields =
        std::sscanf(line.c_str(), "%255s %d %lf(%d)/%63s 16 0 %d %d 0 %63[^\n]", file.data(),
                    &signal.format, &signal.gain, &signal.baseline, unit.data(), &signal.firstValue,
                    &signal.checksum, description.data());
    if (fields != 8) {
        throw std::runtime_error("signal line: " + line);
    }
    signal.file = file.data();
    signal.unit = unit.data();
    signal.description = description.data();
    return signal;
}

std::vector<unsigned char> ReadAll(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void ReadSamples(RecordFile& record, const std::string& directory) {
    const std::vector<unsigned char> bytes = ReadAll(directory + record.signals.at(0).file);
    const std::size_t count = record.signals.size();
    if (bytes.size() != record.frames * count * 2) {
        throw std::runtime_error("length of " + record.signals[0].file);
    }
    for (std::size_t at = 0; at < bytes.size(); at += 2) {
        const auto value = static_cast<std::uint16_t>(bytes[at] + 256U * bytes[at + 1]);
        record.signals[at / 2 % count].samples.push_back(static_cast<std::int16_t>(value));
    }
}

} // namespace

RecordFile ReadRecordFile(const std::string& path) {
    RecordFile record;
    std::ifstream header(path);
    std::string line;
    std::getline(header, line);
    std::array<char, 256> name{};
    std::size_t signals = 0;
    if (std::sscanf(line.c_str(), "%255s %zu %lf %llu", name.data(), &signals, &record.rate,
                    &record.frames) != 4) {
        throw std::runtime_error("record line: " + line);
    }
    record.name = name.data();
    for (; signals > 0 && std::getline(header, line); --signals) {
        record.signals.push_back(ParseSignal(line));
    }
    while (std::getline(header, line)) {
        record.comments += line + "\n";
    }
    ReadSamples(record, path.substr(0, path.rfind('/') + 1));
    return record;
}
