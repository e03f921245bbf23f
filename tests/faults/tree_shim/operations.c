/* Counts the operations and makes one of them fail. */
#include "tree.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

enum Outcome { AS_USUAL, FAILS, HALF_WAY };

static char openPaths[FILES][PATH_SIZE];

/* The path of an open file whose operations are counted, NULL for any other. */
static const char *pathOf(int file)
{
    return file >= 0 && file < FILES && openPaths[file][0] && !asideFromTheRun ? openPaths[file]
                                                                               : NULL;
}

static bool isMet(int64_t number, enum Place place)
{
    if (switches.at <= 0 || number < switches.at || (number > switches.at && !switches.forever)) {
        return false;
    }
    const int64_t inMemory = place == STAGING_IN_MEMORY;
    if (number == switches.at) {
        shared->inMemory = inMemory;
    }
    return inMemory == shared->inMemory;
}

static void endProcess(void)
{
    kill(getpid(), SIGKILL);
    // The first process of a PID namespace cannot send this to itself.
    __builtin_trap();
}

/* Counts an operation and decides whether it fails; if so, errno is set. */
static enum Outcome countOperation(enum Place place, bool writes, bool needsRoom)
{
    const int64_t number = __atomic_add_fetch(&shared->operations, 1, __ATOMIC_SEQ_CST);
    shared->unguarded += self == PROGRAM && place == DISK;
    if (switches.action == NO_ACTION || switches.action == MEMORY || !isMet(number, place)) {
        return AS_USUAL;
    }
    enum Outcome outcome = FAILS;
    switch (switches.action) {
    case KILL:
        ++shared->faults;
        endProcess();
        break;
    case HALF:
    case SHORT:
        outcome = writes ? HALF_WAY : AS_USUAL;
        break;
    case FAIL_EIO:
        errno = EIO;
        break;
    case FAIL_ENOSPC:
        errno = ENOSPC;
        outcome = needsRoom ? FAILS : AS_USUAL;
        break;
    default:
        waitForHarness();
        return AS_USUAL;
    }
    shared->faults += outcome != AS_USUAL;
    return outcome;
}

static void recordFailure(enum Place place, const char *path)
{
    const int error = errno;
    recordOperation('F', place, path, NULL, 0, 0);
    errno = error;
}

static int openCounted(
    const char *path, int flags, mode_t mode, int (*next)(const char *, int, ...))
{
    const enum Place place = placeOf(path);
    if (place == NOWHERE) {
        return next(strcmp(path, "/dev/urandom") == 0 ? "/dev/zero" : path, flags, mode);
    }
    struct stat status;
    const bool creates = (flags & O_CREAT) && stat(path, &status) != 0;
    if ((flags & O_CREAT) && countOperation(place, false, creates) != AS_USUAL) {
        recordFailure(place, path);
        return -1;
    }
    const int file = next(path, flags, mode);
    if (file >= 0 && file < FILES && strlen(path) < PATH_SIZE) {
        strcpy(openPaths[file], path);
    }
    if (flags & O_CREAT) {
        recordOperation(file >= 0 && creates ? 'C' : 'O', place, path, NULL, 0, 0);
    }
    return file;
}

static mode_t modeArgument(int flags, va_list arguments)
{
    return flags & (O_CREAT | __O_TMPFILE) ? va_arg(arguments, mode_t) : 0;
}

#define OPEN(name)                                                                                 \
    int name(const char *path, int flags, ...)                                                     \
    {                                                                                              \
        va_list arguments;                                                                         \
        va_start(arguments, flags);                                                                \
        const mode_t mode = modeArgument(flags, arguments);                                        \
        va_end(arguments);                                                                         \
        return openCounted(path, flags, mode, NEXT(name));                                         \
    }

OPEN(open)
OPEN(open64)

int close(int file)
{
    if (pathOf(file)) {
        openPaths[file][0] = '\0';
    }
    return NEXT(close)(file);
}

static ssize_t writeCounted(int file, const void *data, size_t size, off64_t offset, bool appends)
{
    const char *path = pathOf(file);
    const enum Place place = placeOf(path);
    struct stat status = {0};
    fstat(file, &status);
    const enum Outcome outcome =
        countOperation(place, true, offset + (off64_t)size > status.st_size);
    const size_t part = outcome == HALF_WAY ? size / 2 : size;
    ssize_t written = -1;
    if (outcome != FAILS) {
        written =
            appends ? NEXT(write)(file, data, part) : NEXT(pwrite64)(file, data, part, offset);
    }
    if (outcome == HALF_WAY && switches.action == HALF) {
        endProcess();
    }
    recordOperation('W', place, path, data, written > 0 ? (uint32_t)written : 0, (uint64_t)offset);
    return written;
}

ssize_t pwrite64(int file, const void *data, size_t size, off64_t offset)
{
    return pathOf(file) ? writeCounted(file, data, size, offset, false)
                        : NEXT(pwrite64)(file, data, size, offset);
}

ssize_t pwrite(int file, const void *data, size_t size, off_t offset)
{
    return pwrite64(file, data, size, offset);
}

/* A file that is written with write() is new, or is appended to. */
ssize_t write(int file, const void *data, size_t size)
{
    if (!pathOf(file)) {
        return NEXT(write)(file, data, size);
    }
    struct stat status = {0};
    fstat(file, &status);
    return writeCounted(file, data, size, status.st_size, true);
}

/* Counts an operation that is about to be done. If it has to fail, the calling function returns. */
#define COUNTED(path, needsRoom)                                                                   \
    const enum Place place = placeOf(path);                                                        \
    if (place != NOWHERE && countOperation(place, false, needsRoom) != AS_USUAL) {                 \
        recordFailure(place, path);                                                                \
        return -1;                                                                                 \
    }

static int done(int result, char kind, enum Place place, const char *path, uint64_t offset)
{
    if (place != NOWHERE) {
        const int error = errno;
        recordOperation(result == 0 ? kind : 'F', place, path, NULL, 0, offset);
        errno = error;
    }
    return result;
}

int ftruncate64(int file, off64_t size)
{
    const char *path = pathOf(file);
    COUNTED(path, false)
    return done(NEXT(ftruncate64)(file, size), 'T', place, path, (uint64_t)size);
}

int ftruncate(int file, off_t size)
{
    return ftruncate64(file, size);
}

int fsync(int file)
{
    const char *path = pathOf(file);
    COUNTED(path, false)
    return done(NEXT(fsync)(file), 'Y', place, path, 0);
}

int fdatasync(int file)
{
    const char *path = pathOf(file);
    COUNTED(path, false)
    return done(NEXT(fdatasync)(file), 'Y', place, path, 0);
}

int fchown(int file, uid_t owner, gid_t group)
{
    const char *path = pathOf(file);
    COUNTED(path, false)
    return done(NEXT(fchown)(file, owner, group), 'M', place, path, 0);
}

int fchmod(int file, mode_t mode)
{
    const char *path = pathOf(file);
    COUNTED(path, false)
    return done(NEXT(fchmod)(file, mode), 'M', place, path, 0);
}

static bool exists(const char *path)
{
    struct stat status;
    return lstat(path, &status) == 0;
}

#define REMOVE(name)                                                                               \
    int name(const char *path)                                                                     \
    {                                                                                              \
        const char *counted = exists(path) ? path : NULL;                                          \
        COUNTED(counted, false)                                                                    \
        return done(NEXT(name)(path), 'U', place, counted, 0);                                     \
    }

REMOVE(unlink)
REMOVE(remove)
REMOVE(rmdir)

int mkdir(const char *path, mode_t mode)
{
    COUNTED(path, true)
    return done(NEXT(mkdir)(path, mode), 'M', place, path, 0);
}

int rename(const char *from, const char *to)
{
    COUNTED(from, true)
    const int result = NEXT(rename)(from, to);
    if (place != NOWHERE) {
        const int error = errno;
        recordOperation(result == 0 ? 'R' : 'F', place, from, to, (uint32_t)strlen(to), 0);
        errno = error;
    }
    return result;
}

struct Identifier {
    uint32_t number;
    uint16_t version[2];
    uint8_t variant[8];
};

/* QUuid::createUuid */
struct Identifier _ZN5QUuid10createUuidEv(void)
{
    static uint32_t number;
    return (struct Identifier){++number, {0, 0x4000}, {0x80}};
}

/* The guard's allocations. */

void *__libc_malloc(size_t size);
void *__libc_calloc(size_t number, size_t size);
void *__libc_realloc(void *place, size_t size);

static bool memoryFails(void)
{
    if (!shared || asideFromTheRun || (self != GUARD && self != GUARD_IN_MEMORY)) {
        return false;
    }
    const int64_t number = __atomic_add_fetch(&shared->allocations, 1, __ATOMIC_SEQ_CST);
    const bool fails = switches.action == MEMORY && switches.at > 0 &&
                       (number == switches.at || (switches.forever && number > switches.at));
    if (fails) {
        ++shared->faults;
        errno = ENOMEM;
    }
    return fails;
}

void *malloc(size_t size)
{
    return memoryFails() ? NULL : __libc_malloc(size);
}

void *calloc(size_t number, size_t size)
{
    return memoryFails() ? NULL : __libc_calloc(number, size);
}

void *realloc(void *place, size_t size)
{
    return memoryFails() ? NULL : __libc_realloc(place, size);
}

/* The guard measures how long its parts take, and writes that into a file. */
int clock_gettime(clockid_t clock, struct timespec *time)
{
    if (clock == CLOCK_MONOTONIC && (self == GUARD || self == GUARD_IN_MEMORY)) {
        *time = (struct timespec){.tv_sec = 1};
        return 0;
    }
    return NEXT(clock_gettime)(clock, time);
}
