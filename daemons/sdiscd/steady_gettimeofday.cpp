// gettimeofday() of this program, over a clock that only runs forward.
//
// avahi computes the ages of its records and all its timeouts from gettimeofday(). When somebody sets the machine's clock
// forward, every service is removed and found again; when it is set back, our own ones answer no query until the clock has
// caught up. The executable's symbol takes the place of the C library's for the libraries that it loads, so this is linked
// into the daemon only and into no library. The log reads the wall clock by other means.
#include <sys/time.h>

#include <ctime>

extern "C" [[gnu::visibility("default")]] int gettimeofday(struct timeval *time, void *) noexcept
{
    timespec now{};
    if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) return -1;
    time->tv_sec = now.tv_sec;
    time->tv_usec = now.tv_nsec / 1000;
    return 0;
}
