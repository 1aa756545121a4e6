#include "tools/worker/OutputRecords.h"

#include "lab/common/Failure.h"

#include <chrono>
#include <filesystem>
#include <thread>

namespace worker {
namespace {

namespace fs = std::filesystem;

// The simulator stops a little later than the stop is sent.
constexpr std::chrono::seconds kPatience{30};
constexpr std::chrono::milliseconds kPause{5};

} // namespace

std::vector<std::string> OutputRecords::Files() const {
    std::vector<std::string> files;
    if (m_path.empty()) {
        return files;
    }
    const fs::path begin(m_path);
    for (const fs::directory_entry& entry : fs::directory_iterator(begin.parent_path())) {
        if (entry.path().filename().string().rfind(begin.filename().string(), 0) == 0) {
            files.push_back(entry.path().string());
        }
    }
    return files;
}

// Written last; empty until then.
std::string OutputRecords::Header() const {
    for (const std::string& file : Files()) {
        if (fs::path(file).extension() == ".hea") {
            return file;
        }
    }
    return "";
}

void OutputRecords::Clear() const {
    for (const std::string& file : Files()) {
        fs::remove(file);
    }
}

lab::Outputs OutputRecords::Read() const {
    if (m_path.empty()) {
        lab::Fail(lab::kUsage, "outputs", "are not known of a real simulator.",
                  "Only an emulated one decodes what it is sent.");
    }
    if (Files().empty()) {
        lab::Fail(lab::kMaterial, "outputs", "have carried nothing yet.", "Play something first.");
    }
    const auto end = std::chrono::steady_clock::now() + kPatience;
    std::string header = Header();
    while (header.empty() && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(kPause);
        header = Header();
    }
    return lab::ReadOutputs(header.empty() ? m_path : header);
}

} // namespace worker
