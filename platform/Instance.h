#pragma once

#include <string>

// What the library knows about the process it lives in.
class CInstance {
  public:
    CInstance();

    // The directory that relative names refer to, with a closing "/".
    std::string GetWorkingDirectory() const;

  private:
    std::string m_workingDirectory;
};

extern CInstance g_Instance;
