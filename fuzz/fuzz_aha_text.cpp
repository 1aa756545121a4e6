// The AHA text loader: every readable file loads, with no more samples than lines.
#include "engine/loaders/LoadAHA.h"
#include "fuzz/LoadedMaterial.h"
#include "fuzz/ScratchDirectory.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string path = ScratchDirectory::Get().Write("a.txt", data, size);
    ECG_HEADER* header = LoadDatabaseAHA(path.c_str());
    Require(header != nullptr);
    Require(g_nSampleCount <= (size + 1) / 2);
    RequireMaterial(header, MATERIAL_AHA, 250, 2);
    return 0;
}
