// Loaded before a program's libraries, by LD_PRELOAD: its wall clock is an hour slow while the file
// that RAVO_TEST_CLOCK names exists.
#define _GNU_SOURCE
#include <fcntl.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

static int IsSetBack(void) {
    const char* file = getenv("RAVO_TEST_CLOCK");
    return file != NULL && syscall(SYS_faccessat, AT_FDCWD, file, F_OK) == 0;
}

int clock_gettime(clockid_t clock, struct timespec* now) {
    const int result = (int)syscall(SYS_clock_gettime, clock, now);
    if (result == 0 && clock == CLOCK_REALTIME && IsSetBack()) {
        now->tv_sec -= 3600;
    }
    return result;
}

time_t time(time_t* copy) {
    struct timespec now = {0, 0};
    clock_gettime(CLOCK_REALTIME, &now);
    if (copy != NULL) {
        *copy = now.tv_sec;
    }
    return now.tv_sec;
}
