// Runs a fuzz target without libFuzzer:
//   fuzz_NAME MUTATIONS PATH...
// feeds it every file of the given files and directories, then MUTATIONS variations of them.  The
// variations are the same in every run, so that a failure can be repeated.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

using Input = std::vector<uint8_t>;

Input ReadInput(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return Input(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

// Sorted, because the order of a directory differs from machine to machine.
std::vector<std::filesystem::path> FindFiles(int count, char** arguments) {
    std::vector<std::filesystem::path> files;
    for (int i = 0; i < count; ++i) {
        if (!std::filesystem::is_directory(arguments[i])) {
            files.emplace_back(arguments[i]);
            continue;
        }
        for (const auto& entry : std::filesystem::directory_iterator(arguments[i])) {
            files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

// A separate block of exactly the input's size lets the sanitizer detect every access beyond it.
void Run(const Input& input) {
    const std::unique_ptr<uint8_t[]> exact(new uint8_t[input.size()]);
    std::copy(input.begin(), input.end(), exact.get());
    LLVMFuzzerTestOneInput(exact.get(), input.size());
}

class Mutator {
  public:
    explicit Mutator(const std::vector<Input>& seeds) : m_seeds(seeds) {}

    Input Next() {
        Input input = AnySeed();
        for (size_t changes = 1 + Below(4); changes > 0; --changes) {
            Change(input);
        }
        return input;
    }

  private:
    // Not a distribution of the standard library: those differ between implementations.
    size_t Below(size_t limit) { return limit == 0 ? 0 : m_random() % limit; }
    const Input& AnySeed() { return m_seeds[Below(m_seeds.size())]; }
    auto AnyPosition(Input& input) {
        return input.begin() + static_cast<ptrdiff_t>(Below(input.size() + 1));
    }

    void Change(Input& input) {
        switch (Below(7)) {
        case 0:
            FlipBit(input);
            break;
        case 1:
            OverwriteByte(input);
            break;
        case 2:
            input.erase(AnyPosition(input), input.end());
            break;
        case 3:
            EraseRange(input);
            break;
        case 4:
            InsertBytes(input);
            break;
        case 5:
            ReplaceNumber(input);
            break;
        default:
            Splice(input);
            break;
        }
    }

    void FlipBit(Input& input) {
        if (!input.empty()) {
            input[Below(input.size())] ^= static_cast<uint8_t>(1U << Below(8));
        }
    }

    void OverwriteByte(Input& input) {
        static constexpr uint8_t kTelling[] = {0, 1, 0x7F, 0x80, 0xFF, ' ', '\n', '\r', '/', '-'};
        if (!input.empty()) {
            input[Below(input.size())] = kTelling[Below(std::size(kTelling))];
        }
    }

    void EraseRange(Input& input) {
        auto first = AnyPosition(input);
        auto last = AnyPosition(input);
        if (last < first) {
            std::swap(first, last);
        }
        input.erase(first, last);
    }

    void InsertBytes(Input& input) {
        const size_t count = 1 + Below(Below(20) == 0 ? 600 : 8);
        input.insert(AnyPosition(input), count, static_cast<uint8_t>(Below(256)));
    }

    // Replaces a run of digits by a number that does not suit it.
    void ReplaceNumber(Input& input) {
        static const std::string kNumbers[] = {
            "0",     "-1",  "-2147483648", "2147483648",           "9223372036854775807",
            "1e308", "nan", "4294967296",  "99999999999999999999", "0.5",
            "-0",    "inf"};
        const auto isDigit = [](uint8_t byte) { return byte >= '0' && byte <= '9'; };
        const auto first = std::find_if(AnyPosition(input), input.end(), isDigit);
        const auto last = std::find_if_not(first, input.end(), isDigit);
        const std::string& number = kNumbers[Below(std::size(kNumbers))];
        const auto gap = input.erase(first, last);
        input.insert(gap, number.begin(), number.end());
    }

    void Splice(Input& input) {
        Input other = AnySeed();
        input.erase(AnyPosition(input), input.end());
        input.insert(input.end(), AnyPosition(other), other.end());
    }

    const std::vector<Input>& m_seeds;
    std::mt19937 m_random{20240229};
};

} // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: %s MUTATIONS FILE|DIRECTORY...\n", argv[0]);
        return 2;
    }
    std::vector<Input> seeds;
    for (const auto& path : FindFiles(argc - 2, argv + 2)) {
        seeds.push_back(ReadInput(path));
        Run(seeds.back());
    }
    if (seeds.empty()) {
        std::fprintf(stderr, "%s: no seeds: this run would prove nothing\n", argv[0]);
        return 1;
    }
    const long mutations = std::strtol(argv[1], nullptr, 10);
    Mutator mutator(seeds);
    for (long i = 0; i < mutations; ++i) {
        Run(mutator.Next());
    }
    std::printf("%zu seeds, %ld mutations\n", seeds.size(), mutations);
    return 0;
}
