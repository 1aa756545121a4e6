#pragma once

#include "lab/common/Mutex.h"
#include "lab/serve/Http.h"

#include <functional>
#include <string>
#include <sys/types.h>

// Material is looked at in a process of its own: the library holds one record at a time, and in the
// server's own process that is the one being played. A broken file can crash only that separate
// process.
namespace lab::serve {

// The process's side: answers questions on `socket` until the other side is closed.
int AnswerQuestions(int socket, const std::string& root);

// The server's side. One question at a time; the process is started for the first question, and
// again after one that it did not survive.
class MaterialWorker {
  public:
    explicit MaterialWorker(std::string root);
    ~MaterialWorker();
    MaterialWorker(const MaterialWorker&) = delete;
    MaterialWorker& operator=(const MaterialWorker&) = delete;

    // Refuses paths that are not material or lie outside the folder, and a late answer. Gives up as
    // soon as `isWanted`, which is called repeatedly, returns false.
    HttpAnswer Check(const std::string& body, std::chrono::steady_clock::time_point deadline,
                     const std::function<bool()>& isWanted);
    HttpAnswer List(const std::string& folder, std::chrono::steady_clock::time_point deadline);
    HttpAnswer Preview(const std::string& material, double start, double seconds,
                       std::chrono::steady_clock::time_point deadline);
    HttpAnswer Overview(const std::string& material,
                        std::chrono::steady_clock::time_point deadline);

    // Ends the question that is under way, and every one after it.
    void Stop();

  private:
    HttpAnswer Ask(
        const std::string& question, std::chrono::steady_clock::time_point deadline,
        const std::function<bool()>& isWanted = [] { return true; });
    bool IsStopped();
    void Start() RAVO_REQUIRES(m_asking);
    void End() RAVO_REQUIRES(m_asking);

    const std::string m_root;
    Mutex m_asking;
    Mutex m_lock RAVO_ACQUIRED_AFTER(m_asking);
    int m_socket RAVO_GUARDED_BY(m_asking) = -1;
    pid_t m_process RAVO_GUARDED_BY(m_lock) = -1;
    bool m_isStopped RAVO_GUARDED_BY(m_lock) = false;
};

} // namespace lab::serve
