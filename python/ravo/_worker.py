"""The process that serves a simulator, and the messages to and from it."""

from __future__ import annotations

import fcntl
import json
import os
import queue
import struct
import subprocess
import threading
import time
import weakref
from typing import Any, Callable, Mapping, NamedTuple

import numpy as np
import numpy.typing as npt

from ravo._emulator import Emulator
from ravo._errors import BadRequest, Crashed, Error, NoSimulator, OutputLost, Timeout, error_from
from ravo._programs import program
from ravo._results import Played

__tracebackhide__ = True  # pytest shows the caller's line

Floats = npt.NDArray[np.float64]
Bytes = npt.NDArray[np.uint8]
Event = Mapping[str, Any]

# In the emulated simulator's private /var/lock, which vanishes with its last process.
_OUTPUTS = "/var/lock/outputs"

_EMULATOR_FAILED = 125  # status of ravo-emulator when that is its own failure

_LENGTHS = struct.Struct("=QQ")
_PIPE_SIZE = 1 << 20
_PATIENCE = 3.0  # seconds that the worker has for its end
_STOP_PATIENCE = 15.0  # a stop takes effect at a request, which may be 3 s away


class Answer(NamedTuple):
    """The answer to a request: a JSON object, and its payload of bytes."""

    result: Mapping[str, Any]
    payload: Bytes

    def rows(self, count: int, frames: int) -> Floats:
        """The payload as float64 of shape (count, frames)."""
        return self.payload.view(np.float64).reshape(count, frames)


class _Frame(NamedTuple):
    head: Mapping[str, Any]
    payload: Bytes


def _command(emulator: Emulator | None) -> list[str]:
    worker = [program("ravo-worker"), "--interpreter", str(os.getpid())]
    if emulator is None:
        return worker
    return [
        program("ravo-emulator"),
        *emulator.command_line(),
        *("-o", _OUTPUTS, "--"),
        *worker,
        *("--outputs", _OUTPUTS),
    ]


def _read_exactly(file: int, view: memoryview) -> bool:
    while len(view) > 0:
        count = os.readv(file, [view[: 1 << 24]])
        if count == 0:
            return False
        view = view[count:]
    return True


def _read_frames(file: int, inbox: queue.SimpleQueue[_Frame | None]) -> None:
    """Runs on a thread of its own, so that no signal to the interpreter can split a message."""
    lengths = bytearray(_LENGTHS.size)
    try:
        while _read_exactly(file, memoryview(lengths)):
            head_length, payload_length = _LENGTHS.unpack(lengths)
            head = bytearray(head_length)
            payload = np.empty(payload_length, np.uint8)
            if not _read_exactly(file, memoryview(head)):
                break
            if payload_length > 0 and not _read_exactly(file, payload.data):
                break
            inbox.put(_Frame(json.loads(head), payload))
    except (OSError, ValueError, MemoryError):
        pass
    inbox.put(None)


class _Errors:
    """The worker's standard error, in memory."""

    _LONGEST = 4000

    def __init__(self) -> None:
        self.file = os.memfd_create("ravo-worker")
        self.text = ""

    def close(self) -> None:
        """Keeps the end of it as `text`."""
        begin = max(0, os.fstat(self.file).st_size - self._LONGEST)
        self.text = os.pread(self.file, self._LONGEST, begin).decode(errors="replace").strip()
        os.close(self.file)


def _end(
    process: subprocess.Popen[bytes], reader: threading.Thread, errors: _Errors, owner: int
) -> None:
    """Ends the worker; does nothing in a process forked from the owner."""
    if os.getpid() != owner:
        return
    assert process.stdin is not None and process.stdout is not None
    try:
        process.stdin.close()
    except OSError:
        pass
    for end in (process.terminate, process.kill):
        try:
            process.wait(_PATIENCE)
            break
        except subprocess.TimeoutExpired:
            end()
    process.wait()
    reader.join(_PATIENCE)
    process.stdout.close()
    errors.close()


class Worker:
    """One worker process. Requests are made one at a time, from any thread."""

    def __init__(self, emulator: Emulator | None = None) -> None:
        self._errors = _Errors()
        self._owner = os.getpid()
        self._lock = threading.Lock()
        self._sending = threading.RLock()  # so that a stop is not sent into another message
        self._number = 0
        self._inbox: queue.SimpleQueue[_Frame | None] = queue.SimpleQueue()
        # In a session of its own: only the interpreter gets Ctrl-C, and passes it on to the worker.
        self._process = subprocess.Popen(
            _command(emulator),
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            stderr=self._errors.file,
            bufsize=0,
            start_new_session=True,
        )
        assert self._process.stdin is not None and self._process.stdout is not None
        self._in = self._process.stdin.fileno()
        out = self._process.stdout.fileno()
        for pipe in (self._in, out):
            try:
                fcntl.fcntl(pipe, 1031, _PIPE_SIZE)  # F_SETPIPE_SZ; only makes it faster
            except OSError:
                pass
        reader = threading.Thread(
            target=_read_frames, args=(out, self._inbox), name="ravo", daemon=True
        )
        reader.start()
        self._finish = weakref.finalize(
            self, _end, self._process, reader, self._errors, self._owner
        )

    @property
    def process(self) -> int:
        """The process's number."""
        return self._process.pid

    @property
    def is_alive(self) -> bool:
        return self._finish.alive and self._process.poll() is None

    def close(self) -> None:
        """Ends the process and stops whatever it is doing. Harmless when repeated."""
        self._finish()

    def call(
        self,
        request: str,
        head: Mapping[str, Any] | None = None,
        payload: Floats | None = None,
        *,
        on_event: Callable[[Event], None] | None = None,
        timeout: float | None = None,
    ) -> Answer:
        """Makes a request and waits for its answer.

        `on_event` is called on this thread. An exception, Ctrl-C among them, and the end of
        `timeout` seconds stop the worker's request before they are raised.
        """
        with self._lock:
            call = self.new_call(request)
            try:
                call.begin(head, payload)
                return call.wait(on_event=on_event, timeout=timeout)
            except BaseException:
                call.give_up()
                raise

    def new_call(self, request: str) -> Call:
        """Begins a request; the caller ensures that there is one at a time."""
        self._number += 1
        return Call(self, self._number, request)

    def require_owner(self) -> None:
        """Fails in a forked process, which shares the pipes with its parent."""
        if os.getpid() != self._owner:
            raise Error(
                "ravo",
                "the simulator belongs to the process that created it; this one is a fork of it.",
                "Make a new one in this process.",
            )

    def _send(self, head: Mapping[str, Any], payload: Floats | None = None) -> None:
        self.require_owner()
        if not self._finish.alive:
            raise Error("ravo", "the simulator has been closed.", "Make a new one.")
        text = json.dumps(head, allow_nan=False).encode()
        data = memoryview(b"") if payload is None or payload.size == 0 else payload.data.cast("B")
        parts = [memoryview(_LENGTHS.pack(len(text), len(data)) + text), data]
        try:
            with self._sending:
                for part in parts:
                    while len(part) > 0:
                        part = part[os.write(self._in, part[: 1 << 24]) :]
        except BrokenPipeError:
            raise self._crash() from None
        except BaseException:
            # An incomplete message: nothing after it could be parsed.
            self.close()
            raise

    def next_frame(self, timeout: float | None) -> _Frame:
        """The next message; raises queue.Empty when none comes in `timeout` seconds."""
        self.require_owner()
        frame = self._inbox.get(timeout=timeout)
        if frame is None:
            self._inbox.put(None)
            raise self._crash()
        return frame

    def _crash(self) -> Error:
        self.close()
        status = self._process.returncode
        said = self._errors.text
        how = f"signal {-status}" if status < 0 else f"status {status}"
        problem = f"the worker process has ended unexpectedly ({how})."
        if status == _EMULATOR_FAILED:
            return _refusal_of_emulator(said.removeprefix("ravo-emulator: "))
        return Crashed("ravo-worker", problem, said or "Make a new simulator.")


class Call:
    """A request, until it has been answered."""

    def __init__(self, worker: Worker, number: int, request: str) -> None:
        self._worker = worker
        self._request = request
        self.number = number
        self.is_stopped = False
        self._is_begun = False
        self._is_sent = False
        self._is_answered = False

    def begin(
        self, head: Mapping[str, Any] | None = None, payload: Floats | None = None
    ) -> None:
        """Makes the request, and stops it at once if it has already been stopped."""
        self._is_begun = True
        self._worker._send({**(head or {}), "do": self._request, "id": self.number}, payload)
        self._is_sent = True
        if self.is_stopped:
            self.stop()

    def stop(self) -> None:
        """Asks for the end of what the request has begun. From any thread.

        The worker knows nothing of a request that is still on its way: `begin` stops it then.
        """
        self.is_stopped = True
        if not self._is_sent:
            return
        try:
            self._worker._send({"do": "stop", "stops": self.number})
        except Error:
            pass

    def wait(
        self,
        *,
        on_event: Callable[[Event], None] | None = None,
        until: str | None = None,
        timeout: float | None = None,
    ) -> Answer:
        """Waits for the answer, or for an event named `until`."""
        end = None if timeout is None else time.monotonic() + timeout
        while True:
            left = None if end is None else max(0.0, end - time.monotonic())
            try:
                frame = self._worker.next_frame(left)
            except queue.Empty:
                raise Timeout(
                    self._request,
                    f"took longer than {timeout:g} s.",
                    "It has been stopped; give it more time.",
                ) from None
            if frame.head.get("id") != self.number:
                continue  # of a request that was given up
            self._is_answered = "error" in frame.head or "result" in frame.head
            if "error" in frame.head:
                raise _error_of(frame.head["error"])
            if "result" in frame.head:
                return Answer(frame.head["result"], frame.payload)
            if on_event is not None:
                on_event(frame.head)
            if frame.head.get("event") == until:
                return Answer(frame.head, frame.payload)

    def give_up(self) -> Answer | None:
        """Stops, and makes sure that the worker is free again or gone.

        Returns the request's answer so far, if known.
        """
        if not self._is_begun or self._is_answered or not self._worker.is_alive:
            return None
        self._is_sent = True  # an exception came before this was noted
        self.stop()
        try:
            return self.wait(timeout=_STOP_PATIENCE)
        except (Timeout, KeyboardInterrupt):
            self._worker.close()
        except Error:
            pass
        return None


def _refusal_of_emulator(said: str) -> Error:
    """Before it began: because of an argument, or because this machine does not allow it."""
    problem = said.removesuffix("\nRun with --help for more information.")
    if problem.startswith(("--", "The following arguments")):
        where = "faults" if problem.startswith("--fault") else "arguments"
        return BadRequest(
            where, f"are refused: {problem}", "`ravo-emulator --help` says what it takes."
        )
    return NoSimulator("ravo-emulator", problem)


def _error_of(answer: Mapping[str, Any]) -> Error:
    error = error_from(answer)
    if isinstance(error, OutputLost) and "played" in answer:
        error.played = Played.of(answer["played"])
    return error
