/* The operations on the disk: they are counted, and one of them fails. */
#include "shim.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

char openPaths[FILES][PATH_SIZE];
long operations;

enum Outcome { AS_USUAL, FAILS, HALF_WAY };

static bool onDevice(const char *path)
{
    return !asideFromTheRun && (strncmp(path, "/app/", 5) == 0 ||
                                strncmp(path, deviceFolders[1], strlen(deviceFolders[1])) == 0);
}

/* The path of an open file of the device, NULL for all others. */
static const char *pathOf(int file)
{
    return file >= 0 && file < FILES && openPaths[file][0] && !asideFromTheRun ? openPaths[file]
                                                                               : NULL;
}

static void endProcess(void)
{
    kill(getpid(), SIGKILL);
}

/* Counts an operation and decides whether it fails; if so, errno is set. */
static enum Outcome countOperation(bool writes, bool needsRoom)
{
    ++operations;
    if (switches.action == MEMORY || switches.action == PAUSE || !goesWrong(operations)) {
        return AS_USUAL;
    }
    switch (switches.action) {
    case KILL:
        endProcess();
        return FAILS;
    case HALF:
    case SHORT:
        return writes ? HALF_WAY : AS_USUAL;
    case FAIL_EIO:
        errno = EIO;
        return FAILS;
    case FAIL_ENOSPC:
        errno = ENOSPC;
        return needsRoom ? FAILS : AS_USUAL;
    default:
        return AS_USUAL;
    }
}

static int openCounted(
    const char *path, int flags, mode_t mode, int (*next)(const char *, int, ...))
{
    if (switches.sameRandom && strcmp(path, "/dev/urandom") == 0) {
        path = "/dev/zero";
    }
    if (!onDevice(path)) {
        if (switches.channelIn >= 0 && !asideFromTheRun && (flags & O_CREAT)) {
            abort(); /* The copies would share that file. */
        }
        return next(path, flags, mode);
    }
    struct stat status;
    const bool creates = (flags & O_CREAT) && stat(path, &status) != 0;
    if ((flags & O_CREAT) && countOperation(false, creates) != AS_USUAL) {
        recordOperation('F', path, NULL, 0, 0);
        return -1;
    }
    const int file = next(path, flags, mode);
    if (file >= 0 && file < FILES && strlen(path) < PATH_SIZE) {
        strcpy(openPaths[file], path);
    }
    if (file >= 0 && (flags & O_CREAT)) {
        recordOperation(creates ? 'C' : 'O', path, NULL, 0, 0);
    }
    return file;
}

static mode_t modeArgument(int flags, va_list arguments)
{
    return flags & O_CREAT ? va_arg(arguments, mode_t) : 0;
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

static bool grows(int file, off64_t end)
{
    struct stat status;
    return switches.action == FAIL_ENOSPC && fstat(file, &status) == 0 && end > status.st_size;
}

static ssize_t writeCounted(int file, const void *data, size_t size, off64_t offset)
{
    const char *path = pathOf(file);
    const enum Outcome outcome = countOperation(true, grows(file, offset + (off64_t)size));
    const ssize_t written =
        outcome == FAILS
            ? -1
            : NEXT(pwrite64)(file, data, outcome == HALF_WAY ? size / 2 : size, offset);
    if (outcome == HALF_WAY && switches.action == HALF) {
        endProcess();
    }
    if (written > 0) {
        recordOperation('W', path, data, (uint32_t)written, (uint64_t)offset);
    }
    if (written != (ssize_t)size) {
        recordOperation('F', path, NULL, 0, 0);
    }
    return written;
}

ssize_t pwrite64(int file, const void *data, size_t size, off64_t offset)
{
    return pathOf(file) ? writeCounted(file, data, size, offset)
                        : NEXT(pwrite64)(file, data, size, offset);
}

ssize_t pwrite(int file, const void *data, size_t size, off_t offset)
{
    return pwrite64(file, data, size, offset);
}

/* Only the log is written like this, always at its end. */
ssize_t write(int file, const void *data, size_t size)
{
    return pathOf(file) ? writeCounted(file, data, size, lseek64(file, 0, SEEK_END))
                        : NEXT(write)(file, data, size);
}

int ftruncate64(int file, off64_t size)
{
    const char *path = pathOf(file);
    if (path && countOperation(false, false) != AS_USUAL) {
        return -1;
    }
    const int result = NEXT(ftruncate64)(file, size);
    if (path && result == 0) {
        recordOperation('T', path, NULL, 0, (uint64_t)size);
    }
    return result;
}

int ftruncate(int file, off_t size)
{
    return ftruncate64(file, size);
}

static int syncCounted(int file, int (*next)(int))
{
    const char *path = pathOf(file);
    if (path && countOperation(false, false) != AS_USUAL) {
        return -1;
    }
    const int result = next(file);
    if (path && result == 0) {
        recordOperation('Y', path, NULL, 0, 0);
    }
    return result;
}

int fsync(int file)
{
    return syncCounted(file, NEXT(fsync));
}

int fdatasync(int file)
{
    return syncCounted(file, NEXT(fdatasync));
}

int unlink(const char *path)
{
    struct stat status;
    const bool counted = onDevice(path) && stat(path, &status) == 0;
    if (counted && countOperation(false, false) != AS_USUAL) {
        return -1;
    }
    const int result = NEXT(unlink)(path);
    if (counted && result == 0) {
        recordOperation('U', path, NULL, 0, 0);
    }
    return result;
}

int rename(const char *from, const char *to)
{
    const bool counted = onDevice(from);
    if (counted && countOperation(false, true) != AS_USUAL) {
        return -1;
    }
    const int result = NEXT(rename)(from, to);
    if (counted && result == 0) {
        recordOperation('R', from, to, (uint32_t)strlen(to), 0);
    }
    return result;
}
