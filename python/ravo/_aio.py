"""The simulator for asyncio."""

from __future__ import annotations

import asyncio
import functools
import inspect
import threading
from types import TracebackType
from typing import Any, Callable, TypeVar

from ravo._compare import Comparison
from ravo._errors import Error
from ravo._materials import Material, Option
from ravo._picture import Picture
from ravo._results import Played
from ravo._simulator import Simulator
from ravo._worker import Floats

_STOP_INTERVAL = 0.05  # seconds

_Result = TypeVar("_Result")


class AsyncSimulator:
    """A `Simulator` whose calls are awaited; it takes the same arguments.

    ```
    async with ravo.AsyncSimulator(emulated=True) as s:
        await s.play("100.hea", seconds=5)
    ```

    A call that is cancelled stops the output before it ends.
    """

    def __init__(self, **arguments: Any) -> None:
        inspect.signature(Simulator).bind(**arguments)
        self._arguments = arguments
        self._simulator: Simulator | None = None

    @property
    def simulator(self) -> Simulator:
        """The simulator itself, for what does not block."""
        if self._simulator is None:
            raise Error("ravo", "is not open.", "It is inside its async with block.")
        return self._simulator

    async def __aenter__(self) -> AsyncSimulator:
        make = functools.partial(Simulator, **self._arguments)
        making = asyncio.ensure_future(asyncio.to_thread(make))
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

    async def play(self, material: Material, **arguments: Any) -> Played:
        """As `Simulator.play`. `progress` is called on another thread."""
        return await self._await(functools.partial(self.simulator.play, material, **arguments))

    async def outputs(self) -> Floats:
        """As `Simulator.outputs`."""
        return await self._await(self.simulator.outputs)

    async def compare(self) -> Comparison:
        """As `Simulator.compare`."""
        return await self._await(self.simulator.compare)

    async def plot(self, **arguments: Any) -> Picture:
        """As `Simulator.plot`."""
        return await self._await(functools.partial(self.simulator.plot, **arguments))

    async def _await(self, call: Callable[[], _Result]) -> _Result:
        threads: list[int] = []

        def run() -> _Result:
            threads.append(threading.get_ident())
            return call()

        running = asyncio.ensure_future(asyncio.to_thread(run))
        try:
            return await asyncio.shield(running)
        except asyncio.CancelledError:
            # It may not have begun yet, or wait for another call, which goes on.
            while not running.done():
                self.simulator.stop_begun_by(threads)
                await asyncio.wait([running], timeout=_STOP_INTERVAL)
            raise
