#include "Model.h"

#include <algorithm>
#include <set>

namespace model {
namespace {

bool Less(const Time& a, const Time& b) {
    return a.numerator * b.denominator < b.numerator * a.denominator;
}
bool AtMost(const Time& a, const Time& b) {
    return !Less(b, a);
}
Wide Divisor(Wide a, Wide b) {
    return b == 0 ? (a < 0 ? -a : a) : Divisor(b, a % b);
}
// In lowest terms; otherwise the products would soon exceed 127 bits.
Time Minus(const Time& a, const Time& b) {
    const Wide numerator = a.numerator * b.denominator - b.numerator * a.denominator;
    const Wide denominator = a.denominator * b.denominator;
    const Wide divisor = Divisor(numerator, denominator);
    return {numerator / divisor, denominator / divisor};
}
Time Plus(const Time& a, const Time& b) {
    return Minus(a, {-b.numerator, b.denominator});
}
Time Absolute(const Time& a) {
    return {a.numerator < 0 ? -a.numerator : a.numerator, a.denominator};
}
double Seconds(const Time& a) {
    return static_cast<double>(a.numerator) / static_cast<double>(a.denominator);
}

char Letter(char symbol) {
    switch (symbol) {
    case 'N':
    case 'L':
    case 'R':
    case 'B':
    case 'e':
    case 'j':
    case 'n':
        return 'N';
    case 'A':
    case 'a':
    case 'J':
    case 'S':
        return 'S';
    case 'V':
    case 'E':
    case 'r':
        return 'V';
    case 'F':
        return 'F';
    case '/':
    case 'f':
    case 'Q':
    case '?':
        return 'Q';
    default:
        return 0;
    }
}
char Lower(char letter) {
    return static_cast<char>(letter - 'A' + 'a');
}

struct Span {
    Time from;
    Time to;
};

// Whether the "[" at `at` begins an episode: the last effective bracket before it ended one, or
// there is none.
bool Opens(const Marks& marks, std::size_t at) {
    bool inside = false;
    for (std::size_t i = 0; i < at; ++i) {
        inside = marks[i].symbol == '[' || (inside && marks[i].symbol != ']');
    }
    return marks[at].symbol == '[' && !inside;
}

std::vector<Span> Spans(const Marks& marks) {
    std::vector<Span> spans;
    for (std::size_t i = 0; i < marks.size(); ++i) {
        if (Opens(marks, i)) {
            std::size_t end = i;
            while (end + 1 < marks.size() && marks[end].symbol != ']') {
                ++end;
            }
            spans.push_back({marks[i].time, marks[end].time});
        }
    }
    return spans;
}

bool Inside(const Time& time, const std::vector<Span>& spans) {
    return std::any_of(spans.begin(), spans.end(), [&](const Span& span) {
        return AtMost(span.from, time) && AtMost(time, span.to);
    });
}

Marks Beats(const Marks& marks, const std::vector<Span>& fibrillation) {
    Marks beats;
    for (const Mark& mark : marks) {
        if (Letter(mark.symbol) != 0 && !Inside(mark.time, fibrillation)) {
            beats.push_back(mark);
        }
    }
    return beats;
}

bool IsShutDown(const Marks& marks, const Time& time) {
    const Mark* last = nullptr;
    for (const Mark& mark : marks) {
        if (mark.symbol == '~' && AtMost(mark.time, time)) {
            last = &mark;
        }
    }
    return last != nullptr && last->subtype == -1;
}

// ---- Pairs --------------------------------------------------------------------------------------

struct Side {
    Marks beats;
    std::set<std::size_t> free; // neither paired nor found to be alone yet
    std::size_t First() const { return *free.begin(); }
    const Time& FirstTime() const { return beats[First()].time; }
};

Side SideOf(const Marks& beats) {
    Side side{beats, {}};
    for (std::size_t i = 0; i < beats.size(); ++i) {
        side.free.insert(i);
    }
    return side;
}

bool Pairs(const Side& early, const Side& late, const Time& window) {
    const Time distance = Minus(late.FirstTime(), early.FirstTime());
    if (distance.numerator == 0) {
        return true;
    }
    if (Less(window, distance)) {
        return false;
    }
    const std::size_t next = early.First() + 1;
    return next == early.beats.size() ||
           !Less(Absolute(Minus(late.FirstTime(), early.beats[next].time)), distance);
}

class Matrix {
  public:
    Matrix(const Marks& reference, const Marks& test, const Rules& rules,
           const std::vector<Span>& fibrillation)
        : m_referenceMarks(reference), m_testMarks(test), m_rules(rules),
          m_reference(SideOf(Beats(reference, fibrillation))),
          m_test(SideOf(Beats(test, fibrillation))) {}

    std::map<std::string, long long> Count() {
        while (!m_reference.free.empty() || !m_test.free.empty()) {
            if (m_test.free.empty()) {
                LeaveReference();
            } else if (m_reference.free.empty()) {
                LeaveTest();
            } else if (AtMost(m_reference.FirstTime(), m_test.FirstTime())) {
                Pairs(m_reference, m_test, m_rules.window) ? Pair() : LeaveReference();
            } else {
                Pairs(m_test, m_reference, m_rules.window) ? Pair() : LeaveTest();
            }
        }
        return m_counts;
    }

  private:
    void Add(char row, char column, const Time& time) {
        m_counts[{row, column}] += Less(m_rules.learning, time) ? 1 : 0;
    }
    Mark Take(Side& side) {
        const Mark mark = side.beats[side.First()];
        side.free.erase(side.free.begin());
        return mark;
    }
    void Pair() {
        const Mark reference = Take(m_reference);
        const Mark test = Take(m_test);
        Add(Letter(reference.symbol), Lower(Letter(test.symbol)), reference.time);
    }
    void LeaveReference() {
        const Mark mark = Take(m_reference);
        Add(Letter(mark.symbol), IsShutDown(m_testMarks, mark.time) ? 'x' : 'o', mark.time);
    }
    void LeaveTest() {
        const Mark mark = Take(m_test);
        Add(IsShutDown(m_referenceMarks, mark.time) ? 'X' : 'O', Lower(Letter(mark.symbol)),
            mark.time);
    }

    const Marks& m_referenceMarks;
    const Marks& m_testMarks;
    const Rules& m_rules;
    Side m_reference;
    Side m_test;
    std::map<std::string, long long> m_counts;
};

// ---- Runs ---------------------------------------------------------------------------------------

// Whether the beats from `first` to `last` are of one class and no episode lies between any two of
// them.
bool IsUnbroken(const Marks& beats, std::size_t first, std::size_t last, char letter,
                const std::vector<Span>& fibrillation) {
    for (std::size_t i = first; i <= last; ++i) {
        if (Letter(beats[i].symbol) != letter) {
            return false;
        }
    }
    return std::none_of(fibrillation.begin(), fibrillation.end(), [&](const Span& span) {
        return Less(beats[first].time, span.from) && Less(span.from, beats[last].time);
    });
}

bool HasRun(const Marks& beats, std::size_t length, const Span& span, char letter,
            const std::vector<Span>& fibrillation) {
    for (std::size_t first = 0; first + length <= beats.size(); ++first) {
        const std::size_t last = first + length - 1;
        if (IsUnbroken(beats, first, last, letter, fibrillation) &&
            AtMost(span.from, beats[first].time) && AtMost(beats[last].time, span.to)) {
            return true;
        }
    }
    return false;
}

struct Bin {
    const char* name;
    std::size_t fewest;
    std::size_t most;
};
const Bin kBins[] = {{"couplet", 2, 2}, {"short", 3, 5}, {"long", 6, SIZE_MAX}};

void CountRuns(Counts& counts, const Marks& side, const Marks& other, char letter,
               const std::vector<Span>& fibrillation, const Rules& rules, const std::string& all,
               const std::string& matched) {
    for (std::size_t first = 0; first < side.size(); ++first) {
        for (std::size_t last = first; last < side.size(); ++last) {
            const auto unbroken = [&](std::size_t from, std::size_t to) {
                return IsUnbroken(side, from, to, letter, fibrillation);
            };
            const bool isRun = unbroken(first, last) &&
                               (first == 0 || !unbroken(first - 1, last)) &&
                               (last + 1 == side.size() || !unbroken(first, last + 1));
            if (!isRun || !Less(rules.learning, side[first].time)) {
                continue;
            }
            const Span span = {Minus(side[first].time, rules.window),
                               Plus(side[last].time, rules.window)};
            for (const Bin& bin : kBins) {
                if (last - first + 1 >= bin.fewest && last - first + 1 <= bin.most) {
                    const std::string name = std::string(1, Lower(letter)) + "_" + bin.name + "_";
                    counts.counts[name + all] += 1;
                    counts.counts[name + matched] +=
                        HasRun(other, bin.fewest, span, letter, fibrillation) ? 1 : 0;
                }
            }
        }
    }
}

// ---- Episodes -----------------------------------------------------------------------------------

Time Shared(const Span& one, const Span& other) {
    const Time from = Less(one.from, other.from) ? other.from : one.from;
    const Time to = Less(one.to, other.to) ? one.to : other.to;
    return Less(from, to) ? Minus(to, from) : Time{};
}

void CountEpisodes(Counts& counts, const std::vector<Span>& side, const std::vector<Span>& other,
                   const Rules& rules, const std::string& all, const std::string& matched) {
    for (const Span& span : side) {
        if (!Less(rules.learning, span.from)) {
            continue;
        }
        double shared = 0.0;
        for (const Span& each : other) {
            shared += Seconds(Shared(span, each));
        }
        counts.counts["vf_" + all] += 1;
        counts.counts["vf_" + matched] += shared > 0.0 ? 1 : 0;
        counts.seconds[all] += Seconds(Minus(span.to, span.from));
        counts.seconds[matched] += shared;
    }
}

} // namespace

Counts Compare(const Marks& reference, const Marks& test, const Rules& rules) {
    const std::vector<Span> fibrillation = Spans(reference);
    Counts counts;
    counts.counts = Matrix(reference, test, rules, fibrillation).Count();
    const Marks beats = Beats(reference, fibrillation);
    const Marks others = Beats(test, fibrillation);
    for (const char letter : {'V', 'S'}) {
        CountRuns(counts, beats, others, letter, fibrillation, rules, "reference",
                  "matchedReference");
        CountRuns(counts, others, beats, letter, fibrillation, rules, "test", "matchedTest");
    }
    const std::vector<Span> testEpisodes = Spans(test);
    CountEpisodes(counts, fibrillation, testEpisodes, rules, "reference", "matchedReference");
    CountEpisodes(counts, testEpisodes, fibrillation, rules, "test", "matchedTest");
    return counts;
}

} // namespace model
