// The cost of playing on the emulated simulator: the time from its request to the last byte of the
// answering buffer, and the processor time that the library takes while it plays and while it is
// connected and idle.
//
// It is its own host in a sandbox of its own and assumes an otherwise idle machine.

#include "api/ravo.h"
#include "bench/BareExchange.h"
#include "tools/emulator/Sandbox.h"
#include "tools/emulator/Simulator.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fstream>
#include <memory>
#include <set>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using emulator::Settings;
using emulator::Simulator;
using emulator::Unit;
using std::chrono::microseconds;
using std::chrono::seconds;

std::set<std::string> ThreadsOfThisProcess() {
    std::set<std::string> threads;
    DIR* tasks = opendir("/proc/self/task");
    while (const dirent* task = readdir(tasks)) {
        if (task->d_name[0] != '.') {
            threads.insert(task->d_name);
        }
    }
    closedir(tasks);
    return threads;
}

std::atomic<bool> g_connected{false};

void Hear(bool connected) {
    g_connected = connected;
}

// A connected simulator, and the processor time of every thread that is not its own.
class Bench {
  public:
    Bench(Unit unit, double speed) {
        const std::set<std::string> before = ThreadsOfThisProcess();
        Settings settings = Settings::Of(unit);
        settings.behaviour.speed = speed;
        settings.keepFrames = 0; // a list that grows would stall the simulator for milliseconds
        m_simulator = std::make_unique<Simulator>(settings);
        for (const std::string& thread : ThreadsOfThisProcess()) {
            if (before.count(thread) == 0) {
                m_simulatorsThreads.insert(thread);
            }
        }
        g_connected = false;
        RAVOInit(Hear);
        while (!g_connected) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    ~Bench() { RAVOFree(); }
    Bench(const Bench&) = delete;
    Bench& operator=(const Bench&) = delete;

    const Simulator& Device() const { return *m_simulator; }

    void Play() const {
        RAVOEnableLoop(true);
        RAVOLoadWaveform(WAVEFORM_SINE, 1.0, 1.0);
        if (!RAVOOutputWaveform(0, nullptr, nullptr)) {
            std::fprintf(stderr, "The output does not start.\n");
            std::exit(EXIT_FAILURE);
        }
    }

    // Seconds of processor time per second of real time; the shells that the monitor starts count,
    // too.
    double ProcessorShare(seconds duration) const {
        const double before = ProcessorSeconds();
        std::this_thread::sleep_for(duration);
        return (ProcessorSeconds() - before) / static_cast<double>(duration.count());
    }

  private:
    double ProcessorSeconds() const {
        double total = 0.0;
        for (const std::string& thread : ThreadsOfThisProcess()) {
            std::uint64_t nanoseconds = 0;
            std::ifstream("/proc/self/task/" + thread + "/schedstat") >> nanoseconds;
            total += m_simulatorsThreads.count(thread) == 0
                         ? static_cast<double>(nanoseconds) * 1e-9
                         : 0.0;
        }
        rusage children{};
        getrusage(RUSAGE_CHILDREN, &children);
        return total + Seconds(children.ru_utime) + Seconds(children.ru_stime);
    }
    static double Seconds(const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    }

    std::unique_ptr<Simulator> m_simulator;
    std::set<std::string> m_simulatorsThreads;
};

microseconds Quantile(const std::vector<microseconds>& sorted, double quantile) {
    return sorted[static_cast<std::size_t>(quantile * static_cast<double>(sorted.size() - 1))];
}

constexpr std::size_t kAnswers = 5000;

// The simulator's clock runs faster, for more answers in the same time; each answer must still come
// before the next request.
constexpr double kSpeed = 40.0;
constexpr microseconds kPeriod(6250); // 250 frames at 40 times 1000 frames per second

std::vector<microseconds> AnswersOfTheLibrary(Unit unit) {
    const Bench bench(unit, kSpeed);
    bench.Play();
    // Polled now and then: a thread that waits on the journal would be woken by every packet and
    // take time from the threads that are measured.
    while (bench.Device().Seen().Count().requests <= kAnswers) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    RAVOStopOutput();
    return bench.Device().Seen().AnswerTimes();
}

// Returns the 99.9th percentile.
microseconds Report(const char* name, std::vector<microseconds> times) {
    if (times.empty()) {
        std::fprintf(stderr, "The simulator got no answer.\n");
        std::exit(EXIT_FAILURE);
    }
    std::sort(times.begin(), times.end());
    const microseconds late = Quantile(times, 0.999);
    std::printf("%-10s request to last byte of the answer: median %5ld us, 99.9%% %5ld us, "
                "worst %5ld us, of %zu\n",
                name, static_cast<long>(Quantile(times, 0.5).count()),
                static_cast<long>(late.count()), static_cast<long>(times.back().count()),
                times.size());
    return late;
}

// On an otherwise idle machine 99.9 % of the answers are complete within 2 ms.  Where a bare
// exchange of the same bytes takes nearly that long or longer, the machine is not idle, and the
// ratio is more informative.
void MeasureAnswers(const char* name, Unit unit) {
    const microseconds floor = Report("bare", BareExchange().Measure(kAnswers, kPeriod));
    const microseconds late = Report(name, AnswersOfTheLibrary(unit));
    std::printf("%-10s 99.9%% at most 2000 us%s; %.2f times the bare exchange\n", name,
                late < microseconds(2000) ? "" : "  MISSED",
                static_cast<double>(late.count()) / static_cast<double>(floor.count()));
}

void MeasureProcessorTime() {
    const Bench bench(Unit::kSixteenBit, 1.0);
    std::printf("connected and idle: %.3f s of processor time per second\n",
                bench.ProcessorShare(seconds(10)));
    bench.Play();
    std::printf("playing:            %.3f s of processor time per second\n",
                bench.ProcessorShare(seconds(10)));
    RAVOStopOutput();
}

// The library's threads exist already, and a process with threads cannot enter a sandbox: a forked
// child has only one thread, enters the sandbox and starts the program again.
int RunInSandbox(char** arguments) {
    const pid_t child = fork();
    if (child == 0) {
        std::string whyNot;
        if (emulator::EnterSandbox(whyNot)) {
            execv("/proc/self/exe", arguments);
        }
        std::fprintf(stderr, "%s\n", whyNot.c_str());
        _exit(EXIT_FAILURE);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : EXIT_FAILURE;
}

} // namespace

int main(int /*count*/, char** arguments) {
    if (!emulator::IsInSandbox()) {
        return RunInSandbox(arguments);
    }
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    MeasureAnswers("12 bits", Unit::kTwelveBit);
    MeasureAnswers("16 bits", Unit::kSixteenBit);
    MeasureProcessorTime();
    return 0;
}
