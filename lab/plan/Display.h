#pragma once

#include <string>

namespace lab {

// The progress of a run on standard error: one line in place on a terminal, plain
// lines elsewhere, nothing when quiet.
class Display {
  public:
    Display(bool isQuiet, std::size_t steps, double seconds);
    ~Display();
    Display(const Display&) = delete;
    Display& operator=(const Display&) = delete;

    // A step begins: number `step`, counted from 0.
    void Begin(std::size_t step, const std::string& name, const std::string& what);

    // The progress of the step; `left` is the seconds until the run is over.
    void Update(const std::string& position, double left);

    // A line that is not overwritten later.
    void Say(const std::string& sentence);

  private:
    void Clear();

    bool m_isQuiet;
    bool m_isTerminal;
    std::size_t m_steps;
    std::string m_head;
    double m_nextUpdate = 0.0;
    bool m_isShown = false;
};

} // namespace lab
