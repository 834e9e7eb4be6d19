/* counted_forks.c - in the coverage build: a process that becomes another program, or ends at once,
 * counts what it has run before that. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdlib.h>
#include <unistd.h>

void __gcov_dump(void);
void __gcov_reset(void);

static void Count(void)
{
    __gcov_dump();
    __gcov_reset();
}

int execvp(const char *file, char *const argv[])
{
    int (*next)(const char *, char *const[]);
    *(void **)(&next) = dlsym(RTLD_NEXT, "execvp");
    Count();
    return next(file, argv);
}

void _exit(int status)
{
    void (*next)(int);
    *(void **)(&next) = dlsym(RTLD_NEXT, "_exit");
    Count();
    next(status);
    __builtin_unreachable();
}

void abort(void)
{
    void (*next)(void);
    *(void **)(&next) = dlsym(RTLD_NEXT, "abort");
    Count();
    next();
    __builtin_unreachable();
}
