"""The smallest host in Python: plays a WFDB record once.

    python3 host.py 100.hea
"""

import sys
import time

import ravo


def main(path):
    record = ravo.RAVOLoadMITHeader(path)
    if not ravo.RAVOLoadMITDatabase(record):  # false for a record that could not be read, too
        sys.exit("The record cannot be loaded.")
    if not ravo.RAVOConnect(-1, 30000):  # any port, within half a minute
        sys.exit("No simulator answers.")
    ravo.RAVOEnableLoop(True)  # unlooped, output would end half-way; see the guide
    playing = ravo.RAVOOutputWaveform(0, ravo.RAVO_PROGRESS(), ravo.RAVO_DELAY())
    if playing:
        time.sleep(record.contents.NumberOfSamples / record.contents.SamplingFrequency + 1)
    ravo.RAVOStopOutput()
    ravo.RAVOFree()
    ravo.RAVOFreeECGHeader(record)
    return 0 if playing else 4


if __name__ == "__main__":
    sys.exit(main(sys.argv[1] if len(sys.argv) > 1 else "100.hea"))
