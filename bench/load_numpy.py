#!/usr/bin/env python3
"""Loading half an hour of twelve signals in format 16 against numpy: bench/load_numpy.py LIBRAVO

Both read the same file and make one array of doubles in millivolts per signal, in place of the
arrays that the previous run made.  Prints the shortest processor times of a few runs and their
ratio, and fails above the limit.  That the values are the same to the last bit is for the tests to show.
"""
import ctypes
import os
import sys
import tempfile
import time

import numpy

SIGNALS, RATE, MINUTES, GAIN, RUNS, LIMIT = 12, 1000, 30, 200, 7, 1.2


def write_record(folder):
    frames = RATE * 60 * MINUTES
    random = numpy.random.default_rng(1)
    samples = random.integers(-900, 900, (frames, SIGNALS), dtype=numpy.int16)
    samples.tofile(os.path.join(folder, "load.dat"))
    with open(os.path.join(folder, "load.hea"), "w", encoding="ascii") as header:
        header.write(f"load {SIGNALS} {RATE} {frames}\n")
        for lead in "I II III aVR aVL aVF V1 V2 V3 V4 V5 V6".split():
            header.write(f"load.dat 16 {GAIN} 16 0 0 0 0 {lead}\n")
    return os.path.join(folder, "load.hea")


def by_numpy(arrays, path):
    arrays.clear()
    stored = numpy.fromfile(path, "<i2").reshape(-1, SIGNALS)
    arrays.extend(signal / GAIN for signal in stored.T)


def by_library(library, path):
    header = library.RAVOLoadMITHeader(path.encode())
    if not header or not library.RAVOLoadMITDatabase(header):
        sys.exit("the library does not load the record")
    library.RAVOFreeECGHeader(header)


def timed(run, *arguments):
    began = time.process_time()
    run(*arguments)
    return time.process_time() - began


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__.splitlines()[0])
    library = ctypes.CDLL(sys.argv[1])
    library.RAVOLoadMITHeader.restype = ctypes.c_void_p
    library.RAVOLoadMITDatabase.argtypes = [ctypes.c_void_p]
    library.RAVOFreeECGHeader.argtypes = [ctypes.c_void_p]
    with tempfile.TemporaryDirectory() as folder:
        path = write_record(folder)
        arrays, numpys, librarys = [], [], []
        for _ in range(RUNS):
            numpys.append(timed(by_numpy, arrays, path.replace(".hea", ".dat")))
            librarys.append(timed(by_library, library, path))
    ratio = min(librarys) / min(numpys)
    print(f"numpy   {min(numpys):.3f} s")
    print(f"library {min(librarys):.3f} s")
    print(f"ratio   {ratio:.2f}  (at most {LIMIT})")
    return 0 if ratio <= LIMIT else 1


if __name__ == "__main__":
    sys.exit(main())
