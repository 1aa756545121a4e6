"""A simulator, as a test uses it."""

from __future__ import annotations

import contextlib
import threading
from types import TracebackType
from typing import Any, Callable, Iterator, Mapping, Sequence

import numpy as np

from ravo import _arguments
from ravo._compare import Comparison
from ravo._emulator import Emulator, emulator_of
from ravo._errors import BadRequest, Crashed, Error, OutputLost, Timeout
from ravo._materials import Material, Option, Request, request_of, settled
from ravo._picture import Picture, picture_request
from ravo._results import Played, Progress
from ravo._worker import Call, Event, Floats, Worker

__tracebackhide__ = True  # pytest shows the caller's line

OnProgress = Callable[[Progress], None]

_Requested = tuple[Request, Mapping[str, Option]]

_START_PATIENCE = 60.0  # seconds that loading and starting may take


class Simulator:
    """A simulator, real or emulated, in a worker process of its own.

    ```
    with ravo.Simulator(emulated=True) as s:
        s.play("100.hea", start=10, seconds=5)
    ```

    Several may be open at a time. One simulator does one thing at a time: calls from several
    threads wait for each other.

    Args:
        emulated: True, or an `Emulator` with settings: one that needs no hardware, decodes what it
            is sent and shares nothing with other simulators.
        port: only the simulator on /dev/ttyACM<port>; else the first one found.
        serial: only the one with this serial number.
        timeout: seconds to look for it, up to 3600.
        speed_up: of an emulated one: how many times faster than real time it plays, 0.001 to 1000.
        progress: called about five times a second while something plays.

    Raises:
        NoSimulator: none answered in time.
        BadRequest: an argument is of the wrong type or has an impossible value.
    """

    def __init__(
        self,
        *,
        emulated: bool | Emulator = False,
        port: int | None = None,
        serial: str = "",
        timeout: float = 10.0,
        speed_up: float | None = None,
        progress: OnProgress | None = None,
    ) -> None:
        _arguments.caller("progress", progress)
        head: dict[str, Any] = {
            "timeout": _arguments.seconds_to_wait(timeout),
            "serial": _arguments.text("serial", serial),
        }
        if _arguments.port(port) is not None:
            head["port"] = _arguments.port(port)
        self._emulator = emulator_of(emulated, port, serial, speed_up)
        if self._emulator is None and speed_up is not None:
            raise BadRequest(
                "speed_up", "is for emulated simulators.", "Leave it out: a real one keeps real time."
            )
        self._progress = progress
        self._current: Call | None = None
        self._player: int | None = None  # the thread that has begun the current one
        self._requested: _Requested | None = None  # by the play that is on
        self._last: _Requested | None = None  # by the play that has ended
        self._lock = threading.Lock()
        self._holder: int | None = None  # the thread whose call or playing() block it is in
        self._plays: list[Played] = []
        self._worker = Worker(self._emulator)
        try:
            self._info = self._worker.call("connect", head).result
        except BaseException:
            self._worker.close()
            raise

    def __enter__(self) -> Simulator:
        return self

    def __exit__(
        self,
        kind: type[BaseException] | None,
        error: BaseException | None,
        trace: TracebackType | None,
    ) -> None:
        self.close()

    def __repr__(self) -> str:
        kind = "emulated " if self.emulated else ""
        return f"<ravo.Simulator: {kind}{self.model} {self.serial} at {self.device}>"

    def close(self) -> None:
        """Stops what is playing and releases the simulator. Harmless when repeated."""
        self._worker.close()

    # ---- What it is -----------------------------------------------------------------------------

    @property
    def emulated(self) -> bool:
        """Whether it is an emulated one."""
        return self._emulator is not None

    @property
    def device(self) -> str:
        """Its port, "/dev/ttyACM0"."""
        return str(self._info["device"])

    @property
    def model(self) -> str:
        """Its model's name."""
        return str(self._info["model"])

    @property
    def serial(self) -> str:
        """Its serial number."""
        return str(self._info["serial"])

    @property
    def bits(self) -> int:
        """Of its converters: 12 or 16."""
        return int(self._info["bits"])

    @property
    def version(self) -> str:
        """Of the library that drives it."""
        return str(self._info["version"])

    @property
    def process(self) -> int:
        """The number of its worker process."""
        return self._worker.process

    @property
    def is_open(self) -> bool:
        """Whether it can be used."""
        return self._worker.is_alive

    @property
    def is_idle(self) -> bool:
        """Whether it is idle: no call and no playing() block is active."""
        return not self._lock.locked()

    @property
    def plays(self) -> Sequence[Played]:
        """All plays so far, the last one at the end."""
        return tuple(self._plays)

    @property
    def played(self) -> Played | None:
        """The last play that has ended; None before the first."""
        return self._plays[-1] if self._plays else None

    # ---- Playing --------------------------------------------------------------------------------

    def play(
        self,
        material: Material,
        *,
        start: float = 0.0,
        seconds: float | None = None,
        loop: bool = False,
        progress: OnProgress | None = None,
        timeout: float | None = None,
        **options: Option,
    ) -> Played:
        """Plays and waits until the simulator's requests prove that everything has left it.

        Args:
            material: a file's path, "builtin:MA1_001", a waveform, `Samples`, `NoiseStress` or a
                loaded `Record`.
            start: second of the material to begin at.
            seconds: how much to play; else to the end. Required for material without an end.
            loop: start over at the end.
            progress: called about five times a second, on this thread.
            timeout: seconds that the whole call may take; unlimited by default.
            **options: the material options of `ravo play` by their long names: map={"MLII": "I"},
                gain=2.0 or {"II": 0.5}, offset (mV), noise="50HZ", noise_record, snr (dB), format,
                rate, unit, missing="zero", require_calibrated ...

        Raises:
            BadMaterial: it cannot be read or played as it is asked for; BadRequest when that is an
                argument's fault.
            OutputLost: the simulator went away or fell silent; `played` has how far it came.
            Timeout: it took longer than `timeout`; the output has been stopped.
        """
        request = request_of(material)
        _arguments.caller("progress", progress)
        if timeout is not None:
            cure = "Give seconds, up to 1e8, or None."
            timeout = _arguments.number("timeout", timeout, cure, least=0.0, most=1e8)
        if seconds is None and (request.endless or _arguments.truth("loop", loop)):
            raise BadRequest(
                "seconds",
                "is missing: this material has no end.",
                "Say how many seconds to play, or use playing().",
            )
        with self._free():
            told = progress or self._progress
            call = self._next_play()
            try:
                self._begin(call, request, (start, seconds, loop), options, told is not None)
                return self._end(call, call.wait(on_event=_teller(told), timeout=timeout).result)
            except BaseException as error:
                self._abandon(call, error)
                raise
            finally:
                self._current = None

    def playing(
        self,
        material: Material,
        *,
        start: float = 0.0,
        seconds: float | None = None,
        loop: bool = True,
        **options: Option,
    ) -> Playing:
        """Plays for as long as a block lasts; `play` has the arguments.

        Without `seconds` the material starts over at its end until the block is left.
        """
        return Playing(self, request_of(material), (start, seconds, loop), options)

    def stop(self) -> None:
        """Stops what is playing, from any thread; `play` then returns "interrupted"."""
        call = self._current
        if call is not None:
            call.stop()

    def hold(self) -> None:
        """Makes this thread the owner of the playing() block."""
        self._holder = threading.get_ident()

    def stop_begun_by(self, threads: Sequence[int]) -> None:
        """Stops what is playing when one of these threads has begun it."""
        if self._player in threads:
            self.stop()

    def _acquire(self) -> None:
        """Waits for other threads; waiting for a block of this one would never end."""
        self._worker.require_owner()
        if self._holder == threading.get_ident():
            raise Error(
                "ravo",
                "is playing.",
                "Leave the playing() block, or the progress function, first.",
            )
        self._lock.acquire()
        self._holder = threading.get_ident()

    def _release(self) -> None:
        self._holder = None
        self._lock.release()

    @contextlib.contextmanager
    def _free(self) -> Iterator[None]:
        self._acquire()
        try:
            yield
        finally:
            self._release()

    def _next_play(self) -> Call:
        """The play to begin; from now on `stop` ends it."""
        self._player = threading.get_ident()
        self._current = self._worker.new_call("play")
        return self._current

    def _begin(
        self,
        call: Call,
        request: Request,
        span: tuple[float, float | None, bool],
        options: Mapping[str, Option],
        has_progress: bool,
    ) -> None:
        start, seconds, loop = span
        noted = settled({**request.options, **options, "start": start})
        self._requested = (request, noted)
        given: dict[str, Option] = {**self._requested[1], "seconds": seconds, "loop": loop}
        head = {**request.head(given), "progress": has_progress}
        call.begin(head, request.payload)

    def _end(self, call: Call, result: Mapping[str, Any]) -> Played:
        played = Played.of(result)
        if played.result == "interrupted" and not call.is_stopped:
            error = Crashed("ravo-worker", "was ended from outside.", "Make a new simulator.")
            error.played = played
            raise error
        return self._note(played)

    def _abandon(self, call: Call, error: BaseException) -> None:
        if isinstance(error, OutputLost) and error.played is not None:
            self._note(error.played)
        if isinstance(error, Crashed):
            self._worker.close()
        if isinstance(error, Timeout) or not isinstance(error, Error):
            stopped = call.give_up()
            if stopped is not None:
                self._note(Played.of(stopped.result))

    def _note(self, played: Played) -> Played:
        """Keeps a play that has ended as the last one; a refused play does not count."""
        self._last = self._requested
        self._plays.append(played)
        return played

    # ---- What has been played -------------------------------------------------------------------

    def outputs(self) -> Floats:
        """What the outputs of an emulated simulator carried during the last play.

        Returns:
            Millivolts, shape (8, frames), in the order I, II, V1 to V6, as decoded from the bytes
            on the wire: every frame that was sent, `Played.frames_due` of them the material's. The
            chest outputs carry (V + (I + II) / 3) x 0.592731.
        """
        with self._free():
            answer = self._worker.call("outputs")
        return answer.rows(8, int(answer.result["frames"]))

    def compare(self) -> Comparison:
        """The difference between the last play's outputs and what they should have carried."""
        request, options = self._ended()
        played = self.played
        with self._free():
            outputs = self._worker.call("outputs")
            found = outputs.rows(8, int(outputs.result["frames"]))
            if played is not None and played.frames_due is not None:
                found = found[:, : played.frames_due]
            head = {**request.head(options), "frames": found.shape[1]}
            answer = self._worker.call("expected", head, request.payload)
        expected = answer.rows(8, int(answer.result["frames"]))
        return Comparison.of(expected, found, float(answer.result["rate"]))

    def plot(
        self,
        *,
        format: str = "png",
        seconds: float | None = None,
        speed: float = 25.0,
        gain: float | None = None,
        layout: str | None = None,
        leads: Sequence[str] | None = None,
    ) -> Picture:
        """The last play on ECG paper; of an emulated simulator with the outputs drawn over it.

        `ravo.plot` has the arguments.
        """
        request, options = self._ended()
        wanted = picture_request(format, seconds, speed, gain, layout, leads)
        head = {**request.head(options), "picture": wanted, "decoded": self.emulated}
        with self._free():
            answer = self._worker.call("picture", head, request.payload)
        return Picture(answer.payload.tobytes(), format)

    def echo(self, array: Floats) -> Floats:
        """The same float64 array, sent to the worker and returned: for tests of the connection."""
        sent = _arguments.millivolts("array", array)
        with self._free():
            answer = self._worker.call("echo", payload=sent)
        return answer.payload.view(np.float64).reshape(sent.shape)

    def _ended(self) -> _Requested:
        if self._last is None:
            raise Error("ravo", "nothing has been played yet.", "Play something first.")
        return self._last


class Playing:
    """A play that lasts as long as a block; made by `Simulator.playing`.

    Attributes:
        played: the result; None inside the block.
    """

    def __init__(
        self,
        simulator: Simulator,
        request: Request,
        span: tuple[float, float | None, bool],
        options: Mapping[str, Option],
    ) -> None:
        self._simulator = simulator
        self._request = request
        self._span = span
        self._options = options
        self._call: Call | None = None
        self.played: Played | None = None

    def __enter__(self) -> Playing:
        """Returns once the output has been started."""
        simulator = self._simulator
        simulator._acquire()
        call = simulator._next_play()
        try:
            simulator._begin(call, self._request, self._span, self._options, False)
            call.wait(until="progress", timeout=_START_PATIENCE)
        except BaseException as error:
            simulator._abandon(call, error)
            simulator._current = None
            simulator._release()
            if isinstance(error, Timeout):
                raise _late("begun") from None
            raise
        self._call = call
        return self

    def __exit__(
        self,
        kind: type[BaseException] | None,
        error: BaseException | None,
        trace: TracebackType | None,
    ) -> None:
        if self._call is None:
            raise Error("playing", "has not begun.", "It plays in a `with` block.")
        self.leave(error)

    def leave(self, error: BaseException | None) -> None:
        """Stops the output if it is playing, whether or not there was an exception."""
        simulator, call = self._simulator, self._call
        if call is None:
            return
        self._call = None
        try:
            call.stop()
            self.played = simulator._end(call, call.wait(timeout=_START_PATIENCE).result)
        except BaseException as failure:
            simulator._abandon(call, failure)
            if error is None:
                if isinstance(failure, Timeout):
                    raise _late("ended") from None
                raise
        finally:
            simulator._current = None
            simulator._release()


def _late(what: str) -> Timeout:
    """The error in terms of a block, which has no `timeout`."""
    return Timeout(
        "playing",
        f"has not {what} within {_START_PATIENCE:g} s.",
        "It has been stopped. Is the material long, or this machine too busy?",
    )


def _teller(told: OnProgress | None) -> Callable[[Event], None]:
    def tell(event: Event) -> None:
        if told is not None and event.get("event") == "progress":
            told(Progress.of(event))

    return tell


