// The EDF converter: any file gives 0 and no record, or a record that the record library reads.
#include "fuzz/Require.h"
#include "fuzz/ScratchDirectory.h"
#include "WFDB/wfdb.h"

#include <csignal>
#include <sys/resource.h>
#include <vector>

namespace {

// A few header bytes can demand hundreds of megabytes of zeros; beyond this size writing fails.
class FileSizeLimit {
  public:
    FileSizeLimit() {
        std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &m_before);
        const rlimit limit = {65536, m_before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() { setrlimit(RLIMIT_FSIZE, &m_before); }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

  private:
    rlimit m_before = {};
};

int ConvertLimited(const std::string& path, const std::string& directory) {
    const FileSizeLimit limit;
    return WFDBConvertEDF(path.c_str(), directory.c_str());
}

void ReadConverted(std::string path, const std::string& directory) {
    WFDB_HEADER* header = WFDBReadHeader(path.data());
    if (header != nullptr && WFDBLoadSignal(directory.c_str(), header) != 0) {
        std::vector<double> frame(static_cast<size_t>(header->NumberOfSignals));
        for (int i = 0; i < 1000 && WFDBNextSample(header, frame.data(), 1) == 1; ++i) {
        }
    }
    WFDBFreeHeader(header);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const ScratchDirectory& scratch = ScratchDirectory::Get();
    const std::string output = scratch.File("out");
    std::filesystem::create_directory(output);
    const std::string path = scratch.Write("a.edf", data, size);
    const int result = ConvertLimited(path, output);
    Require(result == 0 || result == 1);
    Require(std::filesystem::exists(output + "/a.hea") == (result == 1));
    Require(std::filesystem::exists(output + "/a.dat") == (result == 1));
    ReadConverted(output + "/a.hea", output);
    std::filesystem::remove_all(output);
    return 0;
}
