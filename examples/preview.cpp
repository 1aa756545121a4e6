// Shows the twelve leads while they are played, as a strip of bars for each.
//
//     preview 100.hea
#include <ravo/ravo.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <condition_variable>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <deque>
#include <mutex>
#include <string>
#include <unistd.h>

namespace {

constexpr std::size_t kLeads = 12;
constexpr const char* kNames[kLeads] = {"I",  "II", "III", "aVR", "aVL", "aVF",
                                        "V1", "V2", "V3",  "V4",  "V5",  "V6"};
constexpr std::size_t kColumns = 60;
constexpr double kColumnSeconds = 0.04; // 25 columns a second

// Messages from the library's threads to the main thread.
struct Event {
    enum class Kind { kConnected, kLost, kInstant, kEnd };
    Kind kind;
    double time = 0.0; // of one instant: seconds since the start of output
    std::array<double, kLeads> leads{};
};

// The callbacks only pass the samples on: the library delivers one instant after the other and
// waits for the host.
class Queue {
  public:
    void Put(const Event& event) {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_events.push_back(event);
        }
        m_filled.notify_one();
    }
    Event Take() {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_filled.wait(lock, [this] { return !m_events.empty(); });
        const Event event = m_events.front();
        m_events.pop_front();
        return event;
    }

  private:
    std::mutex m_mutex;
    std::condition_variable m_filled;
    std::deque<Event> m_events;
};

// Never destroyed: a last call may still be under way on the callback thread when main returns.
Queue& s_queue = *new Queue;

// On the connect thread.
void Listen(bool connected) {
    s_queue.Put(Event{connected ? Event::Kind::kConnected : Event::Kind::kLost});
}

// On the callback thread. The leads are valid only during the call, so they are copied.
void TakePreview(double time, double /*recordTime*/, double* leads, bool end) {
    Event event{end ? Event::Kind::kEnd : Event::Kind::kInstant, time};
    std::copy_n(leads, kLeads, event.leads.begin());
    s_queue.Put(event);
}

// Eight bar heights for -1 to +2 mV.
const char* Bar(double millivolts) {
    static const char* const kBars[] = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
    const double height = std::floor((millivolts + 1.0) / 3.0 * 8.0);
    return kBars[static_cast<std::size_t>(std::clamp(height, 0.0, 7.0))];
}

// The last columns of one lead. A column shows the value that is farthest from zero, so that no R
// wave falls between two columns.
class Strip {
  public:
    void Add(double millivolts, bool startsColumn) {
        if (startsColumn) {
            m_columns.push_back(millivolts);
            if (m_columns.size() > kColumns) {
                m_columns.pop_front();
            }
        } else if (std::fabs(millivolts) > std::fabs(m_columns.back())) {
            m_columns.back() = millivolts;
        }
    }
    std::string Text() const {
        std::string text;
        for (const double column : m_columns) {
            text += Bar(column);
        }
        return text;
    }

  private:
    std::deque<double> m_columns;
};

class Screen {
  public:
    // True when a new column has begun.
    bool Add(const Event& instant) {
        const long column = std::lround(std::floor(instant.time / kColumnSeconds + 1e-6));
        const bool startsColumn = column != m_column;
        m_column = column;
        for (std::size_t lead = 0; lead < kLeads; ++lead) {
            m_strips[lead].Add(instant.leads[lead], startsColumn);
        }
        return startsColumn;
    }
    // On a terminal, in place of the previous picture.
    void Draw(bool inPlace) {
        if (inPlace && m_drawn) {
            std::printf("\033[%zuA", kLeads);
        }
        m_drawn = true;
        for (std::size_t lead = 0; lead < kLeads; ++lead) {
            std::printf("%-4s%s\n", kNames[lead], m_strips[lead].Text().c_str());
        }
        std::fflush(stdout);
    }

  private:
    std::array<Strip, kLeads> m_strips;
    long m_column = -1;
    bool m_drawn = false;
};

bool Load(const char* path) {
    ECG_HEADER* record = RAVOLoadMITHeader(path);
    const bool loaded = RAVOLoadMITDatabase(record);
    RAVOFreeECGHeader(record);
    return loaded;
}

// Plays once a simulator is connected. Unlooped the preview shows the whole record once, in half
// its duration, and then ends the output. False when output does not start.
bool ShowPreview() {
    const bool isTerminal = isatty(STDOUT_FILENO) == 1;
    Screen screen;
    for (;;) {
        const Event event = s_queue.Take();
        switch (event.kind) {
        case Event::Kind::kConnected:
            if (!RAVOOutputWaveform(0, TakePreview, nullptr)) {
                return false;
            }
            break;
        case Event::Kind::kInstant:
            if (screen.Add(event) && isTerminal) {
                screen.Draw(isTerminal);
            }
            break;
        case Event::Kind::kEnd:
        case Event::Kind::kLost: // then the end of the material need not come
            screen.Draw(isTerminal);
            return true;
        }
    }
}

void BlockTimerSignals() {
    sigset_t timers;
    sigemptyset(&timers);
    sigaddset(&timers, SIGUSR1);
    sigaddset(&timers, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &timers, nullptr);
}

} // namespace

int main(int argc, char** argv) {
    BlockTimerSignals();
    if (!Load(argc > 1 ? argv[1] : "100.hea")) {
        std::fputs("The record cannot be loaded.\n", stderr);
        return 2;
    }
    RAVOInit(Listen);
    const bool played = ShowPreview();
    RAVOFree();
    return played ? 0 : 4;
}
