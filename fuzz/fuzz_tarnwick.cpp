// The loader of the simulator's own text format: a file loads with the rate and the count of its
// first two lines, or not at all.
#include "engine/loaders/LoadTarnwick.h"
#include "engine/Utils.h"
#include "fuzz/LoadedMaterial.h"
#include "fuzz/ScratchDirectory.h"

#include <vector>

namespace {

// Two lines can demand as much memory as the machine has, which would slow down every run.
bool AsksForMuchMemory(const uint8_t* data, size_t size) {
    constexpr double kManySamples = 100000;
    std::vector<unsigned char> image(data, data + size);
    unsigned char* cursor = image.data();
    unsigned char* end = image.data() + size;
    char title[256];
    char count[256];
    return ReadTextLine(cursor, end, title, sizeof(title)) &&
           ReadTextLine(cursor, end, count, sizeof(count)) && ToDouble(count) > kManySamples;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (AsksForMuchMemory(data, size)) {
        return 0;
    }
    const std::string path = ScratchDirectory::Get().Write("a.txt", data, size);
    ECG_HEADER* header = LoadDatabaseTarnwick(path.c_str());
    if (header == nullptr) {
        return 0;
    }
    Require(g_nSampleRate <= INT32_MAX);
    RequireMaterial(header, MATERIAL_TARNWICK, g_nSampleRate, 8);
    return 0;
}
