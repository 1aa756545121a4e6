#pragma once

#include "lab/common/Failure.h"

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <vector>

// The result of a run, made from its journal alone.
//
// The journal's events:
//   run        the plan with its steps as they unfold, who, where, and with what
//   material   one for each distinct material: files with digests, leads, what clips, a strip
//   simulator  the one that the run plays on
//   begin      of a step; their number is the number of its attempts
//   lost       a play that was cut, with the reason
//   end        of a step, with its result: the step is done
//   resume     the run continues in another process
//   stop       the process ended before the run did
//   finished   the run is over
namespace lab {

// One entry of the result's steps. `end` and `material` may be null: not done, none.
nlohmann::ordered_json EntryOf(const nlohmann::ordered_json& step,
                               const nlohmann::ordered_json* end, int attempts,
                               const nlohmann::ordered_json* material);

// The whole of result.json.
nlohmann::ordered_json ResultOf(const std::vector<nlohmann::ordered_json>& events);

// The exit status of `ravo run`: 0 all passed, 4 output was lost, 5 a verdict failed.
ExitStatus StatusOf(const nlohmann::ordered_json& result);

// The journal's event of this kind that came first or last; null when there is none.
const nlohmann::ordered_json* FirstEvent(const std::vector<nlohmann::ordered_json>& events,
                                         const std::string& kind);
const nlohmann::ordered_json* LastEvent(const std::vector<nlohmann::ordered_json>& events,
                                        const std::string& kind);

} // namespace lab
