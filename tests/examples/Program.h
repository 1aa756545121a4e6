#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

// A program that runs beside the test, and its standard output.
class Program {
  public:
    explicit Program(std::vector<std::string> command);
    ~Program(); // ends it by force when it still runs
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    // Waits for the next line; empty at the end.
    std::string ReadLine();
    void Signal(int number) const;
    // The output that was not read yet, and the exit status (128 + N when ended by signal N).
    std::string ReadRest();
    int Wait();

  private:
    bool ReadMore();

    pid_t m_child = -1;
    int m_output = -1;
    std::string m_text;
};
