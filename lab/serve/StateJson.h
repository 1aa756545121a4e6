#pragma once

#include "lab/plan/RunObserver.h"
#include "lab/serve/Findings.h"
#include "lab/serve/HttpFailure.h"
#include "lab/serve/Player.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace lab::serve {

// The state of the bench as clients see it.
struct BenchState {
    PlayerState player;
    std::vector<Finding> findings;
    std::optional<RunProgress> run;     // of a test plan
    std::optional<HttpFailure> refused; // order that failed after its client was answered
    std::vector<std::shared_ptr<const Order>> pending; // orders of that kind still under way
    bool isSilent = false;
    double speedUp = 1;
    int viewers = 0;
};

std::string StateJson(const BenchState& state);

// The same figures in the text format of Prometheus.
std::string MetricsText(const BenchState& state);

} // namespace lab::serve
