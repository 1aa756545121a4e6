// The CSE binary loader: a file loads when it is longer than its samples, and only then.
#include "engine/loaders/LoadCSE.h"
#include "fuzz/LoadedMaterial.h"
#include "fuzz/ScratchDirectory.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string path = ScratchDirectory::Get().Write("a.dcd", data, size);
    ECG_HEADER* header = LoadDatabaseCSE(path.c_str());
    if (header == nullptr) {
        return 0;
    }
    Require(size > 24 * g_nSampleCount + 3000);
    RequireMaterial(header, MATERIAL_DIRECT, 500, 8);
    return 0;
}
