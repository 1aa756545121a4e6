#include "builtin/GeneratedSource.h"

#include <charconv>
#include <ostream>

namespace ctscse {
namespace {

constexpr size_t kValuesPerLine = 16;

constexpr char kNotice[] = "// Generated when the library is built.  Do not edit.\n";

// The shortest text that parses to the same value.
template <typename Number>
void AppendNumber(std::string& text, Number value) {
    char digits[64];
    const std::to_chars_result result = std::to_chars(digits, digits + sizeof digits, value);
    text.append(digits, result.ptr);
}

template <typename Number>
void AppendValues(std::string& text, const std::vector<Number>& values) {
    for (size_t n = 0; n < values.size(); ++n) {
        AppendNumber(text, values[n]);
        text += n % kValuesPerLine == kValuesPerLine - 1 ? ",\n" : ",";
    }
}

template <typename Entry>
void WriteLicensedTable(std::ostream& out, const char* declaration,
                        const std::vector<Entry>& entries) {
    out << "\nconst bool " << declaration << " = {\n";
    for (const Entry& entry : entries) {
        out << (entry.licensed ? "true,\n" : "false,\n");
    }
    out << "};\n";
}

} // namespace

void WriteRecords(std::ostream& out, const std::vector<GeneratedRecord>& records) {
    out << kNotice << "#include \"engine/CTSCSE_Database.h\"\n";
    for (const GeneratedRecord& record : records) {
        std::string text;
        for (const std::vector<double>& lead : record.leads) {
            AppendValues(text, lead);
        }
        out << "\nconst double CTSCSE_Database_" << record.entry.suffix << "[kCTSCSELeads * "
            << record.entry.samplesPerLead << "] = {\n"
            << text << "};\n";
    }
    WriteLicensedTable(out, "g_Database_CTSCSE_Licensed[kCTSCSERecords]", records);
}

void WriteNoises(std::ostream& out, const std::vector<GeneratedNoise>& noises) {
    out << kNotice << "#include \"engine/CTSCSE_Noise.h\"\n";
    for (const GeneratedNoise& noise : noises) {
        std::string text;
        AppendValues(text, noise.values);
        out << "\nconst int32_t CTSCSE_Noise_" << noise.name << "[kCTSCSENoiseSamples] = {\n"
            << text << "};\n";
    }
    WriteLicensedTable(out, "g_Database_CTSCSE_NoiseLicensed[kCTSCSENoises]", noises);
}

} // namespace ctscse
