/*
 * Preloaded into the program, counts what it asks of the disk below the scratch device and makes
 * one of these operations, or all from one on, go wrong; or records them for a replay. An operation
 * is an open that may create, a write, a truncation, a sync, an unlink or a rename.
 *
 *   FAULT_AT=N        the operation that goes wrong, from 1 on
 *   FAULT_ACTION      kill: the process ends before it; half: the process ends half-way through
 *                     the write; EIO: it fails; ENOSPC: it fails where it needs room on the disk;
 *                     short: only half of the write is done
 *   FAULT_FOREVER=1   all operations from N on go wrong
 *   FAULT_RECORD=F    appends operations, their data and the statements between them to F
 *   FAULT_MEMORY_AT=K SQLite's K-th allocation fails; FAULT_FOREVER counts here as well
 *   FAULT_SECURE_DELETE=ON|OFF  for every connection, instead of what SQLite was built with
 *   FAULT_BUSY_TIMEOUT=MS       instead of the time that the program asks for
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sqlite3.h>
#include <stdarg.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#define NEXT(function) ((__typeof__(&function))dlsym(RTLD_NEXT, #function))

enum { FILES = 256, PATH_SIZE = 256 };

enum Action { NO_ACTION, KILL, HALF, FAIL_EIO, FAIL_ENOSPC, SHORT };

enum Outcome { AS_USUAL, FAILS, HALF_WAY };

static char paths[FILES][PATH_SIZE];
static long operations;
static long allocations;
static long faultAt;
static long memoryFaultAt;
static bool forever;
static enum Action action;
static int record = -1;

static long numberFrom(const char *variable)
{
    const char *value = getenv(variable);
    return value ? atol(value) : 0;
}

static bool onDevice(const char *path)
{
    return strncmp(path, "/app/", 5) == 0 || strncmp(path, "/usr/bin/harlo/pool", 19) == 0;
}

/* The path of an open file of the device, NULL for all others. */
static const char *pathOf(int file)
{
    return file >= 0 && file < FILES && paths[file][0] ? paths[file] : NULL;
}

/* Kind, lengths of path and data, offset (a truncation's size, a statement's number of allocations
   before), path, data. */
static void recordOperation(
    char kind, const char *path, const void *data, uint32_t dataSize, uint64_t offset)
{
    if (record < 0) {
        return;
    }
    struct __attribute__((packed)) {
        char kind;
        uint16_t pathSize;
        uint32_t dataSize;
        uint64_t offset;
    } head = {kind, (uint16_t)strlen(path), dataSize, offset};
    const struct iovec parts[] = {
        {&head, sizeof head}, {(void *)path, head.pathSize}, {(void *)data, dataSize}};
    const size_t size = sizeof head + head.pathSize + dataSize;
    if (writev(record, parts, 3) != (ssize_t)size) {
        abort();
    }
}

static void endProcess(void)
{
    kill(getpid(), SIGKILL);
}

/* Counts an operation and decides on it; where it fails, errno is set. */
static enum Outcome countOperation(bool writes, bool needsRoom)
{
    ++operations;
    if (operations != faultAt && !(forever && faultAt > 0 && operations > faultAt)) {
        return AS_USUAL;
    }
    switch (action) {
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
    case NO_ACTION:
        break;
    }
    return AS_USUAL;
}

static int openCounted(
    const char *path, int flags, mode_t mode, int (*next)(const char *, int, ...))
{
    if (!onDevice(path)) {
        return next(path, flags, mode);
    }
    struct stat status;
    const bool creates = (flags & O_CREAT) && stat(path, &status) != 0;
    if ((flags & O_CREAT) && countOperation(false, creates) != AS_USUAL) {
        return -1;
    }
    const int file = next(path, flags, mode);
    if (file >= 0 && file < FILES && strlen(path) < PATH_SIZE) {
        strcpy(paths[file], path);
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
        paths[file][0] = '\0';
    }
    return NEXT(close)(file);
}

static ssize_t writeCounted(int file, const void *data, size_t size, off64_t offset)
{
    struct stat status;
    const char *path = pathOf(file);
    fstat(file, &status);
    const enum Outcome outcome = countOperation(true, offset + (off64_t)size > status.st_size);
    if (outcome == FAILS) {
        return -1;
    }
    if (outcome == HALF_WAY) {
        size /= 2;
    }
    const ssize_t written = NEXT(pwrite64)(file, data, size, offset);
    if (outcome == HALF_WAY && action == HALF) {
        endProcess();
    }
    if (written > 0) {
        recordOperation('W', path, data, (uint32_t)written, (uint64_t)offset);
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

/* The log alone is written like this, at its end. */
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

int sqlite3_busy_timeout(sqlite3 *connection, int milliseconds)
{
    const long instead = numberFrom("FAULT_BUSY_TIMEOUT");
    return NEXT(sqlite3_busy_timeout)(connection, instead ? (int)instead : milliseconds);
}

static sqlite3_mem_methods memory;

static bool memoryFails(void)
{
    ++allocations;
    return allocations == memoryFaultAt ||
           (forever && memoryFaultAt > 0 && allocations > memoryFaultAt);
}

static void *allocate(int size)
{
    return memoryFails() ? NULL : memory.xMalloc(size);
}

static void *reallocate(void *place, int size)
{
    return memoryFails() ? NULL : memory.xRealloc(place, size);
}

static int recordStatement(unsigned event, void *context, void *statement, void *text)
{
    (void)event, (void)context, (void)statement;
    /* A trigger's statements come as comments. */
    if (strncmp(text, "--", 2) != 0) {
        recordOperation('S', "", text, (uint32_t)strlen(text), (uint64_t)allocations);
    }
    return 0;
}

static int prepareConnection(sqlite3 *connection, char **error, const void *api)
{
    (void)error, (void)api;
    const char *secureDelete = getenv("FAULT_SECURE_DELETE");
    if (secureDelete) {
        char *pragma = sqlite3_mprintf("PRAGMA secure_delete = %s", secureDelete);
        sqlite3_exec(connection, pragma, NULL, NULL, NULL);
        sqlite3_free(pragma);
    }
    if (record >= 0) {
        sqlite3_trace_v2(connection, SQLITE_TRACE_STMT, recordStatement, NULL);
    }
    return SQLITE_OK;
}

__attribute__((constructor)) static void readSwitches(void)
{
    static const char *const actions[] = {"", "kill", "half", "EIO", "ENOSPC", "short"};
    const char *name = getenv("FAULT_ACTION");
    for (int i = KILL; name && i <= SHORT; ++i) {
        if (strcmp(name, actions[i]) == 0) {
            action = (enum Action)i;
        }
    }
    faultAt = numberFrom("FAULT_AT");
    memoryFaultAt = numberFrom("FAULT_MEMORY_AT");
    forever = numberFrom("FAULT_FOREVER") != 0;
    const char *file = getenv("FAULT_RECORD");
    if (file) {
        record = NEXT(open)(file, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    }
    if (file || memoryFaultAt > 0) {
        sqlite3_config(SQLITE_CONFIG_GETMALLOC, &memory);
        sqlite3_mem_methods counted = memory;
        counted.xMalloc = allocate;
        counted.xRealloc = reallocate;
        sqlite3_config(SQLITE_CONFIG_MALLOC, &counted);
    }
    sqlite3_auto_extension((void (*)(void))prepareConnection);
}

/* A recording ends with the number of SQLite's allocations. */
__attribute__((destructor)) static void closeRecord(void)
{
    recordOperation('A', "", NULL, 0, (uint64_t)allocations);
}
