// The CSE text loader: a file loads when every line up to the first empty one has twelve fields.
#include "engine/loaders/LoadCSE.h"
#include "fuzz/LoadedMaterial.h"
#include "fuzz/ScratchDirectory.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string path = ScratchDirectory::Get().Write("a.txt", data, size);
    ECG_HEADER* header = LoadDatabaseCSE(path.c_str());
    if (header == nullptr) {
        return 0;
    }
    // Twelve digits and what separates them.
    Require(g_nSampleCount <= (size + 1) / 24);
    RequireMaterial(header, MATERIAL_DIRECT, 500, 8);
    return 0;
}
