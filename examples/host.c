/*
 * The smallest host: plays a WFDB record once.
 *
 *     host_c 100.hea
 */
#include <ravo/ravo.h>

#include <signal.h>
#include <stdio.h>
#include <unistd.h>

int main(int argc, char** argv) {
    sigset_t timers; /* the library's timer must not end this thread's sleep */
    sigemptyset(&timers);
    sigaddset(&timers, SIGUSR1);
    sigaddset(&timers, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &timers, NULL);

    ECG_HEADER* record = RAVOLoadMITHeader(argc > 1 ? argv[1] : "100.hea");
    if (!RAVOLoadMITDatabase(record)) { /* false for a record that could not be read, too */
        fprintf(stderr, "The record cannot be loaded.\n");
        return 2;
    }
    if (!RAVOConnect(-1, 30000)) { /* any port, within half a minute */
        fprintf(stderr, "No simulator answers.\n");
        return 3;
    }
    RAVOEnableLoop(true); /* unlooped, output would end half-way; see the guide */
    bool playing = RAVOOutputWaveform(0, NULL, NULL); /* from second 0 on */
    if (playing) {
        sleep((unsigned int)(record->NumberOfSamples / record->SamplingFrequency) + 1);
    }
    RAVOStopOutput();
    RAVOFree();
    RAVOFreeECGHeader(record);
    return playing ? 0 : 4;
}
