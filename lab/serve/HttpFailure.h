#pragma once

#include "lab/common/Failure.h"

#include <string>

// Failures as a client of the server gets them.
namespace lab::serve {

// A request that is refused with a status of its own.
class HttpFailure : public Failure {
  public:
    HttpFailure(int httpStatus, const std::string& where, const std::string& problem,
                const std::string& cure = {})
        : Failure(kUsage, where, problem, cure), m_httpStatus(httpStatus) {}

    int HttpStatus() const { return m_httpStatus; }

  private:
    int m_httpStatus;
};

[[noreturn]] void Refuse(int httpStatus, const std::string& where, const std::string& problem,
                         const std::string& cure = {});

// Refuses a play that a later order has replaced.
[[noreturn]] void RefuseOvertaken();

// How a failure of the bench appears to a client: 422 where the request or its material is wrong,
// 503 where the simulator is missing or does not take the order.
int HttpStatusOf(const Failure& failure);

// {"error":{"where","problem","cure"}}
std::string ErrorJson(const Failure& failure);

} // namespace lab::serve
