/*
 * A host for a bench where simulators come and go: plays a record whenever one is connected, and
 * again from its beginning when it comes back. Ctrl-C ends it.
 *
 *     listener 100.hea
 */
#include <ravo/ravo.h>

#include <signal.h>
#include <stdio.h>
#include <unistd.h>

/* Events elsewhere reach the main thread as one byte each: the library's connect thread
 * and a signal handler may both write to a pipe, and neither has to wait for anything. */
enum { kConnected = 'c', kLost = 'l', kQuit = 'q' };
static int events[2];

static void Tell(char event) {
    ssize_t written = write(events[1], &event, 1);
    (void)written;
}

/* On the connect thread, which must not be blocked: no further changes are reported meanwhile. */
static void Listen(bool connected) {
    Tell(connected ? kConnected : kLost);
}

static void Quit(int number) {
    (void)number;
    Tell(kQuit);
}

/* A handler, because the library's threads exist before main: a signal that is only blocked here
 * would reach one of them and end the process. */
static void HandleSignals(void) {
    struct sigaction action = {.sa_handler = Quit, .sa_flags = SA_RESTART};
    sigaction(SIGINT, &action, NULL);
    sigaction(SIGTERM, &action, NULL);

    sigset_t timers; /* the library's own two need not disturb this thread */
    sigemptyset(&timers);
    sigaddset(&timers, SIGUSR1);
    sigaddset(&timers, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &timers, NULL);
}

static bool Load(const char* path) {
    ECG_HEADER* record = RAVOLoadMITHeader(path);
    bool loaded = RAVOLoadMITDatabase(record);
    RAVOFreeECGHeader(record);
    return loaded;
}

/* The material stays loaded after a loss; output has ended with it. */
static void Play(void) {
    printf("connected: %s\n", RAVOGetSerialNumber());
    puts(RAVOOutputWaveform(0, NULL, NULL) ? "playing" : "not playing");
}

int main(int argc, char** argv) {
    setvbuf(stdout, NULL, _IOLBF, 0);
    if (pipe(events) != 0) {
        perror("pipe");
        return 1;
    }
    HandleSignals();
    if (!Load(argc > 1 ? argv[1] : "100.hea")) {
        fprintf(stderr, "The record cannot be loaded.\n");
        return 2;
    }
    RAVOEnableLoop(true);
    puts("searching");
    RAVOInit(Listen); /* from here on it searches, now and after every loss */

    for (char event = 0; event != kQuit && read(events[0], &event, 1) == 1;) {
        if (event == kConnected) {
            Play();
        } else if (event == kLost) {
            puts("lost");
        }
    }
    RAVOFree(); /* stops the output, too; the listener is not told */
    puts("done");
    return 0;
}
