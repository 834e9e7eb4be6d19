/* speed.c - shortens the daemon's sleeps: preloaded, it takes the place of sleep(3) and sleeps
 * KESTRUN_BENCH_SPEED times shorter. Programs that the daemon starts load it too and keep their
 * own ways of waiting. */
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

static double Speed(void)
{
    const char *text = getenv("KESTRUN_BENCH_SPEED");
    const double speed = text != NULL ? strtod(text, NULL) : 1;
    return speed >= 1 && speed <= 1e6 ? speed : 1;
}

unsigned int sleep(unsigned int seconds)
{
    const double shortened = (double)seconds / Speed();
    struct timespec left;
    left.tv_sec = (time_t)shortened;
    left.tv_nsec = (long)((shortened - (double)left.tv_sec) * 1e9);
    if (nanosleep(&left, &left) == 0) {
        return 0;
    }
    return (unsigned int)((double)left.tv_sec * Speed());
}
