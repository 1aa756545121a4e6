"""What keeps the simulator from playing."""

from __future__ import annotations

import dataclasses
import math
from typing import Sequence

from ravo import _arguments
from ravo._programs import program, run_json

_STATUSES = (0, 2, 3)  # ready, calibration unusable, none


@dataclasses.dataclass(frozen=True)
class Finding:
    """The result of one check of the machine.

    Attributes:
        check: what was examined.
        state: "ok", "warning" or "failed".
        code: what was found, for programs.
        found: the same in a sentence.
        cure: what to do; empty when there is nothing to do.
        port: the port concerned; None for the whole machine.
    """

    check: str
    state: str
    code: str
    found: str
    cure: str
    port: str | None


@dataclasses.dataclass(frozen=True)
class Findings:
    """An examination of the machine.

    Attributes:
        plays: whether there is a simulator that would play.
        device: its port.
        findings: everything that was examined.
    """

    plays: bool
    device: str | None
    findings: Sequence[Finding]

    @property
    def failed(self) -> Sequence[Finding]:
        """Those that prevent playing."""
        return tuple(finding for finding in self.findings if finding.state == "failed")


def doctor(*, port: int | None = None, timeout: float = 5.0) -> Findings:
    """Finds what keeps a real simulator from playing, and how to fix it.

    Args:
        port: look at /dev/ttyACM<port> only.
        timeout: seconds to wait for an answer, up to 3600; rounded up to whole seconds.
    """
    seconds = max(1, math.ceil(_arguments.seconds_to_wait(timeout)))
    line = [program("ravo"), "doctor", "--json", "--timeout", str(seconds)]
    line += ["--port", str(_arguments.port(port))] if port is not None else []
    found = run_json(line, accepted=_STATUSES)
    return Findings(
        plays=bool(found["plays"]),
        device=found["device"],
        findings=tuple(
            Finding(
                check=str(finding["check"]),
                state=str(finding["state"]),
                code=str(finding["code"]),
                found=str(finding["found"]),
                cure=str(finding["cure"] or ""),
                port=finding["port"],
            )
            for finding in found["findings"]
        ),
    )
