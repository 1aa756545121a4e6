// The state of the disk at each moment: the run's calls of fsync are intercepted by defining a
// function of that name.
#include "lab/plan/Run.h"
#include "tests/support/Files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <mutex>
#include <set>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

struct Synced {
    std::string path;
    std::size_t size = 0;
};

std::mutex s_lock;
std::vector<Synced> s_synced;

} // namespace

extern "C" int fsync(int file) {
    struct stat state {};
    ::fstat(file, &state);
    const auto path = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(file));
    const std::lock_guard lock(s_lock);
    s_synced.push_back({path.string(), static_cast<std::size_t>(state.st_size)});
    return static_cast<int>(::syscall(SYS_fsync, file));
}

using namespace lab;

namespace {

std::vector<Synced> SyncedBy(const RunRequest& request, int status) {
    s_synced.clear();
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    EXPECT_EQ(RunPlan(request), status);
    testing::internal::GetCapturedStdout();
    testing::internal::GetCapturedStderr();
    return s_synced;
}

} // namespace

// Each line was synced before anything followed it, and therefore before the next step began; the
// folder, which holds the file's name, before the first line.
TEST(SyncTest, ALineOfTheJournalIsOnDiskBeforeTheNextIsWritten) {
    const Scratch scratch;
    RunRequest request;
    request.plan = scratch.Write("p.toml", "title = \"t\"\n[[step]]\nname = \"w\"\nwait = 0\n"
                                           "repeat = 3\n[[step]]\nname = \"q\"\nask = \"?\"\n"
                                           "max = 1\n");
    request.answers = scratch.Write("a.toml", "q = 2\n");
    request.output = scratch / "out";
    const std::vector<Synced> synced = SyncedBy(request, 5);
    std::set<std::size_t> sizes;
    bool isFolderSynced = false;
    for (const Synced& sync : synced) {
        if (sync.path == scratch / "out/journal.jsonl") {
            EXPECT_TRUE(sync.size == 0 || isFolderSynced);
            sizes.insert(sync.size);
        }
        isFolderSynced = isFolderSynced || sync.path == scratch / "out";
    }
    const std::string journal = ReadFile(scratch / "out/journal.jsonl");
    std::size_t lines = 0;
    for (auto end = journal.find('\n'); end != std::string::npos;
         end = journal.find('\n', end + 1)) {
        EXPECT_EQ(sizes.count(end + 1), 1U) << journal.substr(0, end);
        ++lines;
    }
    EXPECT_GE(lines, 8U); // a begin and an end of each step
}

// First the content, under another name, then the folder that holds the new name.
TEST(SyncTest, AResultIsOnDiskBeforeItHasItsName) {
    const Scratch scratch;
    RunRequest request;
    request.plan = scratch.Write("p.toml", "title = \"t\"\n[[step]]\nname = \"w\"\nwait = 0\n");
    request.output = scratch / "out";
    const std::vector<Synced> synced = SyncedBy(request, 0);
    for (const char* name : {"result.json", "junit.xml", "report.html", "report.pdf"}) {
        const auto content = std::find_if(synced.begin(), synced.end(), [&](const Synced& sync) {
            return sync.path == scratch / ("out/." + std::string(name) + ".new");
        });
        ASSERT_NE(content, synced.end()) << name;
        EXPECT_EQ(content->size, ReadFile(scratch / ("out/" + std::string(name))).size()) << name;
        ASSERT_NE(content + 1, synced.end()) << name;
        EXPECT_EQ((content + 1)->path, scratch / "out") << name;
    }
}
