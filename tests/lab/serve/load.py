#!/usr/bin/env python3
"""The server's resource use, and the load that it withstands: load.py EMULATOR SERVER [SECONDS]

Plays a built-in record of twelve leads at 1000 samples a second on the emulated simulator, and
prints figures, one a line:
  - processor time of the server while it plays, without viewers and with 20 that read
  - how late a sample's event reaches a viewer, after the moment that the server's position tells
  - with 50 viewers, 10 of which never read, 1000 half-open connections and 200 reloads: the longest
    time of a page, of the state and of orders
  - memory of the server at the beginning and at the end
"""
import http.client
import json
import os
import re
import select
import socket
import subprocess
import sys
import tempfile
import threading
import time


class Server:
    def __init__(self, program, root):
        self.process = subprocess.Popen([program, "--listen", "127.0.0.1:0", "--root", root],
                                        stdout=subprocess.PIPE, text=True)
        line = self.process.stdout.readline()
        self.port = int(re.fullmatch(r"listening on http://127\.0\.0\.1:(\d+)\n", line)[1])

    def ask(self, method, target, body=None):
        began = time.monotonic()
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=60)
        headers = {"Content-Type": "application/json", "Prefer": "respond-async"} if body is not None else {}
        connection.request(method, target, None if body is None else json.dumps(body), headers)
        answer = connection.getresponse()
        text = answer.read()
        connection.close()
        return answer.status, text, time.monotonic() - began

    def state(self):
        return json.loads(self.ask("GET", "/api/state")[1])

    def wait_for(self, is_so):
        end = time.monotonic() + 60
        while not is_so(self.state()):
            if time.monotonic() > end:
                raise SystemExit("load: it does not come to it: " + json.dumps(self.state()))
            time.sleep(0.1)

    def processor_seconds(self):
        nanoseconds = 0
        for thread in os.listdir(f"/proc/{self.process.pid}/task"):
            with open(f"/proc/{self.process.pid}/task/{thread}/schedstat") as file:
                nanoseconds += int(file.read().split()[0])
        return nanoseconds / 1e9

    def memory_kilobytes(self):
        with open(f"/proc/{self.process.pid}/status") as file:
            return int(re.search(r"VmRSS:\s+(\d+)", file.read())[1])

    def connect(self):
        connection = socket.create_connection(("127.0.0.1", self.port), timeout=60)
        return connection

    def view(self):
        connection = self.connect()
        connection.sendall(f"GET /api/events HTTP/1.1\r\nHost: 127.0.0.1:{self.port}\r\n\r\n".encode())
        return connection


class Readers:
    """Viewers that read everything they are sent, on one thread; one of them is examined."""

    def __init__(self, server, count):
        self.sockets = [server.view() for _ in range(count)]
        self.is_over = False
        self.events = 0
        self.late = []  # seconds from the server's writing of a sample to its arrival
        self.rest = b""
        self.first = None  # (arrival, position) of the least late event
        self.thread = threading.Thread(target=self.read)
        self.thread.start()

    def read(self):
        poll = select.poll()
        by_number = {}
        for connection in self.sockets:
            poll.register(connection, select.POLLIN)
            by_number[connection.fileno()] = connection
        watched = self.sockets[0].fileno()
        while not self.is_over:
            for number, _ in poll.poll(200):
                data = by_number[number].recv(1 << 16)
                if number == watched:
                    self.take(data)

    def take(self, data):
        now = time.monotonic()
        self.rest += data
        *events, self.rest = self.rest.split(b"\n\n")
        for event in events:
            if event.startswith(b"event: samples"):
                self.events += 1
                sample = json.loads(event.split(b"data: ", 1)[1])
                length = len(sample["leads"][0]) / sample["rate"]
                self.late.append((now, sample["position"] + length))

    def lateness(self, duration):
        """Seconds after the least delayed event, sorted."""
        laps, before, offsets = 0, -1.0, []
        for now, position in self.late:
            if position < before - duration / 2:
                laps += 1
            before = position
            offsets.append(now - position - laps * duration)
        least = min(offsets)
        return sorted(offset - least for offset in offsets)

    def end(self):
        self.is_over = True
        self.thread.join()
        for connection in self.sockets:
            connection.close()


def processor(server, seconds):
    began, wall = server.processor_seconds(), time.monotonic()
    time.sleep(seconds)
    return 100 * (server.processor_seconds() - began) / (time.monotonic() - wall)


def show(name, text):
    print(f"{name:<54}{text}", flush=True)


def measure_viewers(server, seconds):
    alone = processor(server, seconds)
    readers = Readers(server, 20)
    time.sleep(1)
    watched = processor(server, seconds)
    late = readers.lateness(10.0)
    readers.end()
    show("processor while playing, no viewer", f"{alone:.1f} %")
    show("processor while playing, 20 viewers", f"{watched:.1f} %")
    show("what 20 viewers add", f"{watched - alone:.1f} % of a core")
    show("events a second", f"{readers.events / (seconds + 1):.1f}")
    show("event after the least late one, median and 99 %",
         f"{1000 * late[len(late) // 2]:.0f} ms, {1000 * late[len(late) * 99 // 100]:.0f} ms")


def play(server):
    status, text, took = server.ask("POST", "/api/play", {"material": "builtin:ANE20000",
                                                          "noise": "50HZ", "loop": True})
    assert status in (200, 202), text
    return took


def measure_crowd(server):
    readers = Readers(server, 40)
    mute = [server.view() for _ in range(10)]
    half = []
    for _ in range(1000):
        connection = server.connect()
        connection.sendall(b"GET / HTTP/1.1\r\nHost: x")
        half.append(connection)
    pages, states, orders = [], [], []
    for number in range(200):
        status, _, took = server.ask("GET", "/")
        assert status == 200
        pages.append(took)
        states.append(server.ask("GET", "/api/state")[2])
        status, text, took = server.ask("POST", "/api/noise", {"on": number % 2 == 1})
        assert status == 200, text
        orders.append(took)
    replaced = [play(server) for _ in range(5)]
    stopped = []
    for _ in range(5):
        server.wait_for(lambda state: state["output"]["state"] == "playing" and not state["pending"])
        stopped.append(server.ask("POST", "/api/stop", {})[2])
        server.wait_for(lambda state: state["output"]["state"] == "idle" and not state["pending"])
        play(server)
    for connection in half + mute:
        connection.close()
    readers.end()
    show("50 viewers, 10 mute, 1000 half-open: page", f"{1000 * max(pages):.0f} ms at most")
    show("the same: state", f"{1000 * max(states):.0f} ms at most")
    show("the same: order to switch noise", f"{1000 * max(orders):.0f} ms at most")
    show("the same: play in place of a play", f"{1000 * max(replaced):.0f} ms at most")
    show("the same: stop", f"{1000 * max(stopped):.0f} ms at most")


def measure(program, seconds):
    with tempfile.TemporaryDirectory() as root:
        server = Server(program, root)
        try:
            server.wait_for(lambda state: state["simulator"]["connected"])
            play(server)
            server.wait_for(lambda state: state["output"]["state"] == "playing")
            time.sleep(2)
            memory = server.memory_kilobytes()
            measure_viewers(server, seconds)
            delays = server.state()["output"]["delays"]
            measure_crowd(server)
            show("delays reported by the simulator", str(delays))
            show("memory at the beginning and at the end", f"{memory} kB, {server.memory_kilobytes()} kB")
        finally:
            server.process.terminate()
            server.process.wait()


def main():
    if os.environ.get("RAVO_LOAD_INSIDE"):
        measure(sys.argv[1], float(sys.argv[2]))
        return 0
    emulator, server = sys.argv[1:3]
    seconds = sys.argv[3] if len(sys.argv) > 3 else "20"
    environment = dict(os.environ, RAVO_LOAD_INSIDE="1")
    return subprocess.call([emulator, "--", sys.executable, os.path.abspath(__file__),
                            os.path.abspath(server), seconds], env=environment)


if __name__ == "__main__":
    sys.exit(main())
