/* faults.c - preloaded into the daemon, it makes calls of the C library fail as KESTRUN_FAULT says:
 *
 *     open:3     the third call of the kind "open" fails, once
 *     open:3+    the third and every later one
 *     nofile:20  no faults, but at most 20 descriptors (RLIMIT_NOFILE)
 *     as:64      at most 64 MiB of memory (RLIMIT_AS)
 *
 * The calls are counted by kind, in the file named by KESTRUN_FAULT_COUNTS: a number for each kind, in
 * the order of kKinds, and the number of failures. Processes that the daemon forks count along until
 * they become another program; other programs are left alone. */
#define _GNU_SOURCE
#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

enum Kind {
    ALLOCATE,
    OPEN,
    READ,
    WRITE,
    SEEK,
    FORK,
    OPENDIR,
    INOTIFY,
    MOUNT,
    FOLDER,
    POLL,
    CLOCK,
    KINDS
};

static const char *const kKinds[KINDS] = {"allocate", "open",   "read",    "write",
                                          "seek",     "fork",   "opendir", "inotify",
                                          "mount",    "folder", "poll",    "clock"};

static unsigned s_none[KINDS + 1];
static unsigned *s_counts = s_none; /* by kind, and behind them the failures */
static int s_active;                /* whether this is the daemon */
static int s_kind = -1;             /* the kind that fails */
static unsigned s_number;           /* the call that fails, from 1 */
static int s_for_ever;              /* whether all behind it fail too */

/* Counts a call; whether it has to fail. */
static int Fails(enum Kind kind, int error)
{
    if (!s_active) {
        return 0;
    }
    const unsigned number = ++s_counts[kind];
    if ((int)kind != s_kind || number < s_number || (number > s_number && !s_for_ever)) {
        return 0;
    }
    s_counts[KINDS]++;
    errno = error;
    return 1;
}

static void Limit(int resource, unsigned long most)
{
    const struct rlimit limit = {most, most};
    (void)setrlimit((__rlimit_resource_t)resource, &limit);
}

static void TakeOrder(const char *order)
{
    const char *colon = strchr(order, ':');
    if (colon == NULL) {
        return;
    }
    char *end = NULL;
    const unsigned long number = strtoul(colon + 1, &end, 10);
    const size_t length = (size_t)(colon - order);
    if (strncmp(order, "nofile", length) == 0) {
        Limit(RLIMIT_NOFILE, number);
    } else if (strncmp(order, "as", length) == 0) {
        Limit(RLIMIT_AS, number << 20);
    }
    for (int kind = 0; kind < KINDS; kind++) {
        if (strlen(kKinds[kind]) == length && strncmp(order, kKinds[kind], length) == 0) {
            s_kind = kind;
        }
    }
    s_number = (unsigned)number;
    s_for_ever = *end == '+';
}

__attribute__((constructor)) static void Start(void)
{
    const char *name = getenv("KESTRUN_FAULT_PROGRAM");
    const char *order = getenv("KESTRUN_FAULT");
    const char *counts = getenv("KESTRUN_FAULT_COUNTS");
    if (name == NULL || strcmp(program_invocation_name, name) != 0) {
        return;
    }
    const int fd = counts != NULL ? open(counts, O_RDWR | O_CLOEXEC) : -1;
    if (fd >= 0) {
        void *shared = mmap(NULL, sizeof s_none, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        s_counts = shared != MAP_FAILED ? shared : s_none;
        (void)close(fd);
    }
    if (order != NULL) {
        TakeOrder(order);
    }
    s_active = 1;
}

/* FAULT(kind, error, result, failure, name, parameters, arguments): a function that fails so. */
#define FAULT(kind, error, result, failure, name, parameters, arguments)                           \
    result name parameters;                                                                        \
    result name parameters                                                                         \
    {                                                                                              \
        static result(*next) parameters;                                                           \
        if (next == NULL) {                                                                        \
            *(void **)(&next) = dlsym(RTLD_NEXT, #name);                                           \
        }                                                                                          \
        return Fails(kind, error) ? (failure) : next arguments;                                    \
    }

#ifndef KESTRUN_SANITIZED
/* dlsym allocates, so these go to the C library by their other names. */
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *block, size_t size);

void *malloc(size_t size)
{
    return Fails(ALLOCATE, ENOMEM) ? NULL : __libc_malloc(size);
}

void *calloc(size_t count, size_t size)
{
    return Fails(ALLOCATE, ENOMEM) ? NULL : __libc_calloc(count, size);
}

void *realloc(void *block, size_t size)
{
    return Fails(ALLOCATE, ENOMEM) ? NULL : __libc_realloc(block, size);
}
#endif

FAULT(OPEN, EMFILE, FILE *, NULL, fopen, (const char *path, const char *mode), (path, mode))
FAULT(OPEN, EACCES, int, -1, access, (const char *path, int mode), (path, mode))
FAULT(OPEN, ENOENT, int, -1, stat, (const char *path, struct stat *status), (path, status))
FAULT(OPEN, ENOENT, int, -1, fstatat, (int fd, const char *path, struct stat *status, int flags),
      (fd, path, status, flags))
FAULT(OPEN, ENOENT, char *, NULL, realpath, (const char *path, char *resolved), (path, resolved))

int open(const char *path, int flags, ...)
{
    static int (*next)(const char *, int, ...);
    if (next == NULL) {
        *(void **)(&next) = dlsym(RTLD_NEXT, "open");
    }
    va_list arguments;
    va_start(arguments, flags);
    const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(arguments, unsigned) : 0;
    va_end(arguments);
    return Fails(OPEN, EMFILE) ? -1 : next(path, flags, mode);
}

FAULT(READ, EIO, char *, NULL, fgets, (char *text, int size, FILE *file), (text, size, file))
FAULT(READ, EIO, size_t, 0, fread, (void *to, size_t size, size_t count, FILE *file),
      (to, size, count, file))
FAULT(READ, EIO, ssize_t, -1, read, (int fd, void *to, size_t size), (fd, to, size))
FAULT(READ, EIO, int, EOF, __uflow, (FILE * file), (file))
FAULT(READ, EIO, ssize_t, -1, __getdelim, (char **line, size_t *size, int end, FILE *file),
      (line, size, end, file))
FAULT(READ, EIO, struct dirent *, NULL, readdir, (DIR * folder), (folder))

FAULT(WRITE, ENOSPC, size_t, 0, fwrite, (const void *from, size_t size, size_t count, FILE *file),
      (from, size, count, file))
FAULT(WRITE, ENOSPC, int, EOF, fputs, (const char *text, FILE *file), (text, file))
FAULT(WRITE, ENOSPC, int, EOF, fputc, (int ch, FILE *file), (ch, file))

FAULT(SEEK, ENOSPC, int, -1, fseek, (FILE * file, long offset, int whence), (file, offset, whence))
FAULT(SEEK, EIO, long, -1, ftell, (FILE * file), (file))

FAULT(FORK, EAGAIN, pid_t, -1, fork, (void), ())
FAULT(FORK, EAGAIN, int, -1, system, (const char *command), (command))
FAULT(FORK, EAGAIN, FILE *, NULL, popen, (const char *command, const char *mode), (command, mode))

FAULT(OPENDIR, EMFILE, DIR *, NULL, opendir, (const char *path), (path))
FAULT(OPENDIR, EMFILE, int, -1, scandir,
      (const char *path, struct dirent ***list, int (*filter)(const struct dirent *),
       int (*compare)(const struct dirent **, const struct dirent **)),
      (path, list, filter, compare))

FAULT(INOTIFY, EMFILE, int, -1, inotify_init1, (int flags), (flags))
FAULT(INOTIFY, ENOSPC, int, -1, inotify_add_watch, (int fd, const char *path, uint32_t mask),
      (fd, path, mask))
FAULT(INOTIFY, EINVAL, int, -1, inotify_rm_watch, (int fd, int watch), (fd, watch))

FAULT(MOUNT, ENOENT, int, -1, execvp, (const char *file, char *const argv[]), (file, argv))

FAULT(FOLDER, ENOSPC, int, -1, mkdir, (const char *path, mode_t mode), (path, mode))
FAULT(FOLDER, EBUSY, int, -1, rmdir, (const char *path), (path))
FAULT(FOLDER, EBUSY, int, -1, unlinkat, (int fd, const char *path, int flags), (fd, path, flags))

FAULT(POLL, EINTR, int, -1, poll, (struct pollfd * fds, nfds_t count, int timeout),
      (fds, count, timeout))

/* The clock is set back: to its beginning. */
time_t time(time_t *result)
{
    struct timespec now = {0, 0};
    (void)clock_gettime(CLOCK_REALTIME, &now);
    const time_t at = Fails(CLOCK, 0) ? 0 : now.tv_sec;
    if (result != NULL) {
        *result = at;
    }
    return at;
}

FAULT(CLOCK, EOVERFLOW, struct tm *, NULL, localtime_r, (const time_t *at, struct tm *to), (at, to))
