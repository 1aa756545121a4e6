"""The simulator for asyncio."""

from __future__ import annotations

import asyncio
import contextlib
import functools
import threading
from types import TracebackType
from typing import Any, AsyncIterator, Callable, Sequence, TypeVar

from ravo._compare import Comparison
from ravo._emulator import Emulator
from ravo._errors import Error
from ravo._materials import Material, Option
from ravo._picture import Picture
from ravo._results import Played
from ravo._simulator import OnProgress, Playing, Simulator
from ravo._worker import Floats

_STOP_INTERVAL = 0.05  # seconds

_Result = TypeVar("_Result")


class AsyncSimulator:
    """A `Simulator` whose calls are awaited; it takes the same arguments.

    ```
    async with ravo.AsyncSimulator(emulated=True) as s:
        await s.play("100.hea", seconds=5)
    ```

    A call that is cancelled stops the output before it ends; one that waits for its turn is never
    begun.
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
        self._make = functools.partial(
            Simulator,
            emulated=emulated,
            port=port,
            serial=serial,
            timeout=timeout,
            speed_up=speed_up,
            progress=progress,
        )
        self._simulator: Simulator | None = None
        self._turn = asyncio.Lock()
        self._holder: asyncio.Task[Any] | None = None  # the task whose call or block it is in

    @property
    def simulator(self) -> Simulator:
        """The simulator itself, for everything that does not block."""
        if self._simulator is None:
            raise Error("ravo", "is not open.", "It is inside its async with block.")
        return self._simulator

    async def __aenter__(self) -> AsyncSimulator:
        making = asyncio.ensure_future(asyncio.to_thread(self._make))
        try:
            self._simulator = await asyncio.shield(making)
        except asyncio.CancelledError:
            (await making).close()
            raise
        return self

    async def __aexit__(
        self,
        kind: type[BaseException] | None,
        error: BaseException | None,
        trace: TracebackType | None,
    ) -> None:
        await asyncio.to_thread(self.simulator.close)

    async def play(
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
        """As `Simulator.play`. `progress` is called on another thread."""
        return await self._await(
            functools.partial(
                self.simulator.play,
                material,
                start=start,
                seconds=seconds,
                loop=loop,
                progress=progress,
                timeout=timeout,
                **options,
            )
        )

    @contextlib.asynccontextmanager
    async def playing(
        self,
        material: Material,
        *,
        start: float = 0.0,
        seconds: float | None = None,
        loop: bool = True,
        **options: Option,
    ) -> AsyncIterator[Playing]:
        """As `Simulator.playing`, for an `async with` block."""
        block = self.simulator.playing(material, start=start, seconds=seconds, loop=loop, **options)
        async with self._hold():
            try:
                await self._carry(block.__enter__)
                self.simulator.hold()
                yield block
            except BaseException as error:
                await self._leave(block, error)
                raise
            await self._leave(block, None)

    async def stop(self) -> None:
        """Stops what is playing; `play` then returns "interrupted"."""
        self.simulator.stop()

    async def outputs(self) -> Floats:
        """As `Simulator.outputs`."""
        return await self._await(self.simulator.outputs)

    async def compare(self) -> Comparison:
        """As `Simulator.compare`."""
        return await self._await(self.simulator.compare)

    async def plot(
        self,
        *,
        format: str = "png",
        seconds: float | None = None,
        speed: float = 25.0,
        gain: float | None = None,
        layout: str | None = None,
        leads: Sequence[str] | None = None,
    ) -> Picture:
        """As `Simulator.plot`."""
        return await self._await(
            functools.partial(
                self.simulator.plot,
                format=format,
                seconds=seconds,
                speed=speed,
                gain=gain,
                layout=layout,
                leads=leads,
            )
        )

    @contextlib.asynccontextmanager
    async def _hold(self) -> AsyncIterator[None]:
        """Waits for other tasks; waiting for a block of this one would never end."""
        task = asyncio.current_task()
        if self._holder is task:
            raise Error("ravo", "is playing.", "Leave the playing() block first.")
        async with self._turn:
            self._holder = task
            try:
                yield
            finally:
                self._holder = None

    async def _await(self, call: Callable[[], _Result]) -> _Result:
        async with self._hold():
            return await self._carry(call)

    async def _carry(self, call: Callable[[], _Result]) -> _Result:
        threads: list[int] = []
        is_cancelled = False

        def run() -> _Result:
            if is_cancelled:
                raise Error("ravo", "was cancelled before it began.")
            threads.append(threading.get_ident())
            return call()

        running = asyncio.ensure_future(asyncio.to_thread(run))
        try:
            return await asyncio.shield(running)
        except asyncio.CancelledError:
            is_cancelled = True
            # It may not have begun, or may wait for a thread of the user's, which keeps running.
            while not running.done():
                self.simulator.stop_begun_by(threads)
                await asyncio.wait([running], timeout=_STOP_INTERVAL)
            running.exception()  # which nobody else will ask for
            raise

    async def _leave(self, block: Playing, error: BaseException | None) -> None:
        """Leaves it if it has been entered, cancelled or not."""
        leave = functools.partial(block.leave, error)
        leaving = asyncio.ensure_future(asyncio.to_thread(leave))
        try:
            await asyncio.shield(leaving)
        except asyncio.CancelledError:
            await asyncio.wait([leaving])
            raise
