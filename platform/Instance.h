#pragma once

#include <string>

// Facts that the library knows about its process.
class CInstance {
  public:
    CInstance();

    // The directory that relative names refer to, with a closing "/".
    std::string GetWorkingDirectory() const;

  private:
    std::string m_workingDirectory;
};

extern CInstance g_Instance;
