#pragma once

#include "lab/session/Play.h"

#include <string>
#include <vector>

namespace cli {

// The status shown while a command works: a line that is updated in place on a terminal, and plain
// lines at growing intervals elsewhere.
class StatusLine {
  public:
    enum class Wanted {
        kAlways,
        kOnTerminal, // only when standard error is a terminal
        kNever,
    };

    explicit StatusLine(Wanted wanted);
    ~StatusLine(); // clears the line

    StatusLine(const StatusLine&) = delete;
    StatusLine& operator=(const StatusLine&) = delete;

    // `parts` are in order of importance: on a narrow terminal the last ones are left out.
    void Show(double elapsed, const std::vector<std::string>& parts);

    void Clear();

  private:
    bool IsDue(double elapsed);

    bool m_isTerminal;
    bool m_isShown;
    bool m_isOnScreen = false;
    double m_nextPlainLine = 0.0;
};

// The contents of the line during a search and during a play.
std::vector<std::string> SearchParts(double elapsed, const std::string& what);
std::vector<std::string> PlayParts(const lab::PlayPosition& position, const lab::Record& record);

} // namespace cli
