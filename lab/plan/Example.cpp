#include "lab/plan/Run.h"

namespace lab {

const char* const kExamplePlan = R"TOML(# A plan for `ravo run`. Check it with
#     ravo run PLAN.toml --dry-run
# and carry it out with
#     ravo run PLAN.toml --output results

title = "Example: frequency response and noise"

# Any field of a step; a step that has the field itself overrules it.
[defaults]
pause = 0.5                  # seconds of silence after each step

# Material: anything that `ravo play` takes, with its options by their long names. Paths are
# relative to this file.
[[step]]
name = "sine"                # letters, digits, ".", "_" and "-"
material = "sine"
seconds = 5
matrix = { frequency = [1, 10, 40], amplitude = [0.5, 1.0] }   # one result for each combination

[[step]]
name = "noise"
material = "builtin:MA1_001"
seconds = 10
repeat = 2                   # one result for each repetition
matrix = { noise = ["none", "50HZ"] }

# A file may be held to its bytes:
#     material = "100.hea"
#     map = { MLII = "II" }
#     sha256 = { "100.dat" = "64 hexadecimal digits" }

# A question to the operator; unit, min and max give the verdict.
[[step]]
name = "amplitude"
ask = "Measured amplitude at 10 Hz, 1 mV"
unit = "mV"
min = 0.9
max = 1.1

[[step]]
name = "alarm"
ask = "Did the device raise an alarm?"
choices = ["pass", "fail"]   # "fail", "failed" and "no" fail the step

# Silence.
[[step]]
name = "settle"
wait = 2.0

# A program, without a shell. It gets the step before it as JSON on standard input and prints
#     {"verdict": "passed", "values": {"heart rate": 60}}
# with a verdict of "passed", "failed" or "none".
#     [[step]]
#     name = "readout"
#     hook = ["./readout.py", "--channel", "2"]
#     timeout = 60

# The device's beats compared with the reference's, as `ravo score` does, with limits.
#     [[step]]
#     name = "detector"
#     score = { reference = "100.atr", test = "100.det", qrs_se_min = 0.995 }
)TOML";

} // namespace lab
