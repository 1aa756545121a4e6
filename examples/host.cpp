// The smallest host in C++: everything that has to be released is owned by an object that releases
// it.
//
//     host_cpp 100.hea
#include <ravo/ravo.h>

#include <chrono>
#include <csignal>
#include <future>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

namespace {

using std::chrono::seconds;

// The connection to the simulator; only one per process.
class Connection {
  public:
    explicit Connection(seconds patience) {
        if (!RAVOInit(Listen)) {
            throw std::runtime_error("No thread can be started.");
        }
        if (s_connected.get_future().wait_for(patience) != std::future_status::ready) {
            RAVOFree(); // no destructor runs after a constructor has thrown
            throw std::runtime_error("No simulator answers.");
        }
    }
    ~Connection() { RAVOFree(); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

  private:
    // Called on the library's connect thread, again after every loss.
    static void Listen(bool connected) {
        if (connected && !s_wasConnected) {
            s_wasConnected = true;
            s_connected.set_value();
        }
    }

    static inline bool s_wasConnected = false; // used by the connect thread only
    static inline std::promise<void> s_connected;
};

struct FreeHeader {
    void operator()(ECG_HEADER* header) const { RAVOFreeECGHeader(header); }
};
using Header = std::unique_ptr<ECG_HEADER, FreeHeader>;

Header LoadRecord(const std::string& path) {
    Header header(RAVOLoadMITHeader(path.c_str()));
    if (!RAVOLoadMITDatabase(header.get())) {
        throw std::runtime_error(path + " cannot be loaded.");
    }
    return header;
}

// Running output, repeated until the object is destroyed.
class Output {
  public:
    explicit Output(int startSecond) {
        RAVOEnableLoop(true); // unlooped, output would end half-way; see the guide
        if (!RAVOOutputWaveform(startSecond, nullptr, nullptr)) {
            throw std::runtime_error("The simulator does not start.");
        }
    }
    ~Output() { RAVOStopOutput(); }
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
};

// The library's timer must not interrupt the sleep of this thread, or of threads started from here.
void BlockTimerSignals() {
    sigset_t timers;
    sigemptyset(&timers);
    sigaddset(&timers, SIGUSR1);
    sigaddset(&timers, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &timers, nullptr);
}

void Play(const std::string& path) {
    const Header record = LoadRecord(path);
    const Connection connection(seconds(30));
    const Output output(0);
    std::this_thread::sleep_for(seconds(record->NumberOfSamples / record->SamplingFrequency + 1));
}

} // namespace

int main(int argc, char** argv) {
    BlockTimerSignals();
    try {
        Play(argc > 1 ? argv[1] : "100.hea");
        return 0;
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
