#include "builtin/Catalogue.h"

namespace ctscse {

const std::vector<RecordEntry>& Records() {
    static const std::vector<RecordEntry> records = {
#define CTSCSE_RECORD(suffix, name, samples) {#suffix, name, samples},
#include "engine/CTSCSERecords.def"
    };
    return records;
}

const std::vector<std::string>& Noises() {
    static const std::vector<std::string> noises = {
#define CTSCSE_NOISE(suffix) #suffix,
#include "engine/CTSCSERecords.def"
    };
    return noises;
}

} // namespace ctscse
