/* faults.c - preloaded into the daemon, it makes calls of the C library fail as KESTRUN_FAULT says:
 *
 *     open:3     the third call of the kind "open" fails, once
 *     open:3+    the third and every later one
 *     nofile:20  no faults, but at most 20 descriptors (RLIMIT_NOFILE)
 *     as:64      at most 64 MiB of memory (RLIMIT_AS)
 *
 * What it sees goes into the file named by KESTRUN_FAULT_COUNTS, a struct Seen: how many calls of
 * each kind there were, and what the daemon holds: its blocks of memory, and whenever it waits in
 * poll its descriptors and children. Processes that the daemon forks count along until they become
 * another program; other programs are left alone. A daemon that halts is started again in its
 * place, without failures, and what it then holds is seen; one that the scenario starts again is
 * not looked at. */
#define _GNU_SOURCE
#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <link.h>
#include <poll.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
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

enum { ORIGINS = 1000, DESCRIPTORS = 64, NAME_SIZE = 64, MODULES = 16, BLOCKS = 1 << 16 };

/* Blocks of one size that were asked for at one place of the code and are not given back. */
struct Origin {
    uint64_t place; /* the number of the program or library and the place in it */
    uint64_t size;
    int64_t held;
};

/* As inject.py reads it. */
struct Seen {
    uint32_t calls[KINDS];
    uint32_t failures;
    uint32_t is_waiting;                /* the daemon is in poll, and the following holds */
    uint32_t children;                  /* whether it has any */
    uint32_t has_overflowed;            /* whether there was more than this file has room for */
    uint32_t starts;                    /* of the daemon; all but the first are without failures */
    uint32_t halts;                     /* how often it halted, and was started again at once */
    char first[DESCRIPTORS][NAME_SIZE]; /* what the descriptors were, when it first waited */
    char last[DESCRIPTORS][NAME_SIZE];  /* and when it last did; those unused are empty */
    struct Origin origins[ORIGINS];     /* up to the first without a place */
};

static struct Seen s_none;
static struct Seen *s_seen = &s_none;
static int s_active;      /* whether this is the daemon */
static int s_is_daemon;   /* and not a process that it has forked */
static int s_kind = -1;   /* the kind that fails */
static unsigned s_number; /* the call that fails, from 1 */
static int s_for_ever;    /* whether all behind it fail too */

/* Counts a call; whether it has to fail. */
static int Fails(enum Kind kind, int error)
{
    if (!s_active) {
        return 0;
    }
    const unsigned number = ++s_seen->calls[kind];
    if ((int)kind != s_kind || number < s_number || (number > s_number && !s_for_ever)) {
        return 0;
    }
    s_seen->failures++;
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

/* ---- What is held ---- */

static uintptr_t s_modules[MODULES]; /* where the program and its libraries lie */
static int s_module_count;

static int NoteModule(struct dl_phdr_info *info, size_t size, void *context)
{
    (void)size;
    (void)context;
    if (s_module_count < MODULES) {
        s_modules[s_module_count++] = info->dlpi_addr;
    }
    return 0;
}

/* Every descriptor's name into `names`: a path, or its kind without a number. */
static void NoteDescriptors(char names[DESCRIPTORS][NAME_SIZE])
{
    memset(names, 0, (size_t)DESCRIPTORS * NAME_SIZE);
    for (int fd = 0; fd < DESCRIPTORS; fd++) {
        char path[32];
        (void)snprintf(path, sizeof path, "/proc/self/fd/%d", fd);
        if (syscall(SYS_readlink, path, names[fd], NAME_SIZE - 1) > 0) {
            names[fd][strcspn(names[fd], "[")] = '\0';
        }
    }
}

static void NoteChildren(void)
{
    char path[64];
    char first = '\0';
    (void)snprintf(path, sizeof path, "/proc/self/task/%d/children", (int)getpid());
    const int fd = (int)syscall(SYS_openat, AT_FDCWD, path, O_RDONLY | O_CLOEXEC);
    if (fd >= 0) {
        s_seen->children = syscall(SYS_read, fd, &first, 1) == 1;
        (void)close(fd);
    }
}

static void BeginToWait(void)
{
    if (!s_is_daemon) {
        return;
    }
    const int error = errno;
    NoteDescriptors(s_seen->last);
    if (s_seen->first[0][0] == '\0') {
        memcpy(s_seen->first, s_seen->last, sizeof s_seen->first);
    }
    NoteChildren();
    s_seen->is_waiting = 1;
    errno = error;
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
        void *shared = mmap(NULL, sizeof *s_seen, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        s_seen = shared != MAP_FAILED ? shared : &s_none;
        (void)close(fd);
    }
    if (s_seen->starts++ > s_seen->halts) {
        s_seen = &s_none;
        return;
    }
    if (order != NULL && s_seen->halts == 0) {
        TakeOrder(order);
    }
    (void)dl_iterate_phdr(NoteModule, NULL);
    s_active = 1;
    s_is_daemon = 1;
}

/* What starts the daemon in the field starts it again; so does this, in the same process, which is
 * the one that the bench knows. */
void abort(void)
{
    if (s_is_daemon) {
        s_seen->halts++;
        memset(s_seen->first, 0, sizeof s_seen->first);
        memset(s_seen->origins, 0, sizeof s_seen->origins);
        (void)close_range(STDERR_FILENO + 1, ~0U, 0);
        char *const argv[] = {program_invocation_name, NULL};
        (void)execv(program_invocation_name, argv);
    }
    _exit(134);
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
void __libc_free(void *block);

/* The blocks that are held, by address, and where each came from: a table with linear probing. */
static struct {
    void *block;
    unsigned origin;
} s_blocks[BLOCKS];

static unsigned SlotOf(const void *block)
{
    unsigned slot = (unsigned)(((uintptr_t)block >> 4) * 2654435761U) % BLOCKS;
    while (s_blocks[slot].block != NULL && s_blocks[slot].block != block) {
        slot = (slot + 1) % BLOCKS;
    }
    return slot;
}

static uint64_t PlaceOf(const void *code)
{
    int module = 0;
    for (int i = 1; i < s_module_count; i++) {
        const uintptr_t base = s_modules[i];
        if (base <= (uintptr_t)code &&
            (s_modules[module] > (uintptr_t)code || base > s_modules[module])) {
            module = i;
        }
    }
    return ((uint64_t)(module + 1) << 48) | ((uintptr_t)code - s_modules[module]);
}

static unsigned OriginOf(uint64_t place, size_t size)
{
    for (unsigned i = 0; i < ORIGINS; i++) {
        struct Origin *origin = &s_seen->origins[i];
        if (origin->place == 0) {
            origin->place = place;
            origin->size = size;
        }
        if (origin->place == place && origin->size == size) {
            return i;
        }
    }
    s_seen->has_overflowed = 1;
    return ORIGINS - 1;
}

/* Notes a block that the caller at `code` was given. */
static void *Hold(void *block, size_t size, const void *code)
{
    static unsigned held;
    if (block == NULL || !s_is_daemon) {
        return block;
    }
    if (held++ >= BLOCKS / 2) { /* what is given back leaves its slot to nobody else */
        s_seen->has_overflowed = 1;
        return block;
    }
    const unsigned slot = SlotOf(block);
    held -= s_blocks[slot].block == block;
    s_blocks[slot].block = block;
    s_blocks[slot].origin = OriginOf(PlaceOf(code), size) + 1;
    s_seen->origins[s_blocks[slot].origin - 1].held++;
    return block;
}

static void LetGo(const void *block)
{
    if (block == NULL || !s_is_daemon) {
        return;
    }
    const unsigned slot = SlotOf(block);
    if (s_blocks[slot].block == block && s_blocks[slot].origin != 0) {
        s_seen->origins[s_blocks[slot].origin - 1].held--;
        s_blocks[slot].origin = 0;
    }
}

void *malloc(size_t size)
{
    return Fails(ALLOCATE, ENOMEM) ? NULL
                                   : Hold(__libc_malloc(size), size, __builtin_return_address(0));
}

void *calloc(size_t count, size_t size)
{
    return Fails(ALLOCATE, ENOMEM)
               ? NULL
               : Hold(__libc_calloc(count, size), count * size, __builtin_return_address(0));
}

void *realloc(void *block, size_t size)
{
    if (Fails(ALLOCATE, ENOMEM)) {
        return NULL;
    }
    void *larger = __libc_realloc(block, size);
    if (larger != NULL || size == 0) {
        LetGo(block);
    }
    return Hold(larger, size, __builtin_return_address(0));
}

void free(void *block)
{
    LetGo(block);
    __libc_free(block);
}

/* The C library keeps the text of an unknown number until the next one: that is no leak. */
char *strerror(int number)
{
    static char *(*next)(int);
    if (next == NULL) {
        *(void **)(&next) = dlsym(RTLD_NEXT, "strerror");
    }
    const int is_daemon = s_is_daemon;
    s_is_daemon = 0;
    char *text = next(number);
    s_is_daemon = is_daemon;
    return text;
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

pid_t fork(void)
{
    static pid_t (*next)(void);
    if (next == NULL) {
        *(void **)(&next) = dlsym(RTLD_NEXT, "fork");
    }
    const pid_t child = Fails(FORK, EAGAIN) ? -1 : next();
    s_is_daemon = s_is_daemon && child != 0;
    return child;
}

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

int poll(struct pollfd *fds, nfds_t count, int timeout)
{
    static int (*next)(struct pollfd *, nfds_t, int);
    if (next == NULL) {
        *(void **)(&next) = dlsym(RTLD_NEXT, "poll");
    }
    if (Fails(POLL, EINTR)) {
        return -1;
    }
    BeginToWait();
    const int result = next(fds, count, timeout);
    s_seen->is_waiting = 0;
    return result;
}

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
