/*
 * Preloaded into the program, counts what it asks of the disk below the scratch device and makes
 * one of these operations, or all from one on, go wrong. An operation is an open that may create, a
 * write, a truncation, a sync, an unlink or a rename.
 *
 *   FAULT_AT=N        the operation that goes wrong, from 1 on
 *   FAULT_ACTION      kill: the process ends before it; half: the process ends half-way through
 *                     the write; EIO: it fails; ENOSPC: it fails where it needs room on the disk;
 *                     short: only half of the write is done; memory: SQLite's N-th allocation fails
 *                     instead of an operation; pause: nothing does, the N-th statement waits
 *   FAULT_FOREVER=1   all from N on go wrong
 *   FAULT_CHANNEL=IN,OUT  instead of FAULT_AT, file descriptors. N is read from IN. What comes to
 *                     the N-th operation or allocation is a copy of the process: it meets the fault
 *                     and its wait status is written to OUT. The process itself then reads the next
 *                     N, puts the files back as they were and goes on undisturbed. A pause says so
 *                     on OUT and ends with the next N.
 *   FAULT_RECORD=F    the statements, how they fail and the log's writes are recorded in F, with a
 *                     channel those of the copy
 *   FAULT_RECORD_ALL=1    and the operations with their data, for a replay
 *   FAULT_SAME_RANDOM=1   random numbers and identifiers are the same in every run
 *   FAULT_SECURE_DELETE=ON|OFF  for every connection, instead of what SQLite was built with
 *   FAULT_BUSY_TIMEOUT=MS       instead of the time that the program asks for
 */
#define _GNU_SOURCE
#include <dirent.h>
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
#include <sys/wait.h>
#include <unistd.h>

#define NEXT(function)                                                                             \
    ({                                                                                             \
        static __typeof__(&function) next;                                                         \
        if (!next) {                                                                               \
            next = (__typeof__(&function))dlsym(RTLD_NEXT, #function);                             \
        }                                                                                          \
        next;                                                                                      \
    })

enum { FILES = 256, PATH_SIZE = 320 };

enum Action { NO_ACTION, KILL, HALF, FAIL_EIO, FAIL_ENOSPC, SHORT, MEMORY, PAUSE };

enum Outcome { AS_USUAL, FAILS, HALF_WAY };

static const char *const folders[] = {"/app/databases", "/usr/bin/harlo/pool"};
static const char logName[] = "/app/databases/sqlMigrationErrorLog.txt";

static char paths[FILES][PATH_SIZE];
static long operations;
static long allocations;
static long statements;
static long faultAt;
static bool forever;
static enum Action action;
static int channelIn = -1;
static int channelOut = -1;
static int record = -1;
static bool recordsAll;
static bool sameRandom;
static bool asideFromTheRun;

static long numberFrom(const char *variable)
{
    const char *value = getenv(variable);
    return value ? atol(value) : 0;
}

static bool onDevice(const char *path)
{
    return !asideFromTheRun &&
           (strncmp(path, "/app/", 5) == 0 || strncmp(path, folders[1], strlen(folders[1])) == 0);
}

/* The path of an open file of the device, NULL for all others. */
static const char *pathOf(int file)
{
    return file >= 0 && file < FILES && paths[file][0] && !asideFromTheRun ? paths[file] : NULL;
}

/* Kind, lengths of path and data, offset (a truncation's size, SQLite's allocations before a
   statement, an error's code), path (an error's statement), data. */
static void recordEvent(
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

static void recordOperation(
    char kind, const char *path, const void *data, uint32_t dataSize, uint64_t offset)
{
    if (recordsAll || strcmp(path, logName) == 0) {
        recordEvent(kind, path, data, dataSize, offset);
    }
}

static void openRecord(void)
{
    const char *file = getenv("FAULT_RECORD");
    if (file) {
        record = NEXT(open)(file, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    }
}

/* The files of the device, as they were when a copy of the process left. */
struct Saved {
    struct Saved *next;
    char path[PATH_SIZE];
    char *content;
    size_t size;
};

static void forEachFile(void (*visit)(const char *path, void *context), void *context)
{
    for (size_t i = 0; i < sizeof folders / sizeof *folders; ++i) {
        DIR *folder = opendir(folders[i]);
        for (struct dirent *entry = readdir(folder); entry; entry = readdir(folder)) {
            if (entry->d_type == DT_REG) {
                char path[PATH_SIZE];
                snprintf(path, sizeof path, "%s/%s", folders[i], entry->d_name);
                visit(path, context);
            }
        }
        closedir(folder);
    }
}

static void save(const char *path, void *context)
{
    struct Saved **all = context;
    struct Saved *saved = calloc(1, sizeof *saved);
    const int file = open(path, O_RDONLY);
    struct stat status;
    fstat(file, &status);
    strcpy(saved->path, path);
    saved->size = (size_t)status.st_size;
    saved->content = malloc(saved->size + 1);
    if (read(file, saved->content, saved->size) != (ssize_t)saved->size) {
        abort();
    }
    /* This gives up all locks that the process has on the file, as nobody else would. */
    close(file);
    saved->next = *all;
    *all = saved;
}

static void removeNew(const char *path, void *context)
{
    for (const struct Saved *saved = context; saved; saved = saved->next) {
        if (strcmp(path, saved->path) == 0) {
            return;
        }
    }
    unlink(path);
}

/* A file that was removed meanwhile comes back as another one, which its users open again. */
static void reopen(const char *path)
{
    struct stat status;
    stat(path, &status);
    for (int i = 0; i < FILES; ++i) {
        struct stat own;
        if (strcmp(path, paths[i]) == 0 && fstat(i, &own) == 0 && own.st_ino != status.st_ino) {
            const int file = open(path, fcntl(i, F_GETFL) & (O_ACCMODE | O_APPEND));
            dup3(file, i, O_CLOEXEC);
            close(file);
        }
    }
}

static void putBack(struct Saved *saved)
{
    forEachFile(removeNew, saved);
    while (saved) {
        const int file = open(saved->path, O_WRONLY | O_CREAT, 0644);
        if (ftruncate(file, (off_t)saved->size) != 0 ||
            pwrite(file, saved->content, saved->size, 0) != (ssize_t)saved->size) {
            abort();
        }
        close(file);
        reopen(saved->path);
        struct Saved *done = saved;
        saved = saved->next;
        free(done->content);
        free(done);
    }
}

static void readChannel(void)
{
    char line[32] = "";
    size_t size = 0;
    while (size < sizeof line - 1 && NEXT(read)(channelIn, line + size, 1) == 1 &&
           line[size] != '\n') {
        ++size;
    }
    faultAt = atol(line);
}

/* Returns in a copy of the process, that is to meet the fault, and in the process itself, whose
   turn will come later or never. */
static void branch(void)
{
    struct Saved *saved = NULL;
    asideFromTheRun = true;
    forEachFile(save, &saved);
    const pid_t copy = fork();
    if (copy == 0) {
        channelIn = -1;
        openRecord();
    } else {
        int status = 0;
        waitpid(copy, &status, 0);
        dprintf(channelOut, "%d\n", status);
        readChannel();
        putBack(saved);
    }
    asideFromTheRun = false;
}

static bool goesWrong(long number)
{
    if (channelIn >= 0 && number == faultAt) {
        branch();
    }
    return faultAt > 0 && (number == faultAt || (forever && number > faultAt));
}

static void endProcess(void)
{
    kill(getpid(), SIGKILL);
}

/* Counts an operation and decides on it; where it fails, errno is set. */
static enum Outcome countOperation(bool writes, bool needsRoom)
{
    ++operations;
    if (action == MEMORY || action == PAUSE || !goesWrong(operations)) {
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
    default:
        return AS_USUAL;
    }
}

static int openCounted(
    const char *path, int flags, mode_t mode, int (*next)(const char *, int, ...))
{
    if (sameRandom && strcmp(path, "/dev/urandom") == 0) {
        path = "/dev/zero";
    }
    if (!onDevice(path)) {
        if (channelIn >= 0 && !asideFromTheRun && (flags & O_CREAT)) {
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

static bool grows(int file, off64_t end)
{
    struct stat status;
    return action == FAIL_ENOSPC && fstat(file, &status) == 0 && end > status.st_size;
}

static ssize_t writeCounted(int file, const void *data, size_t size, off64_t offset)
{
    const char *path = pathOf(file);
    const enum Outcome outcome = countOperation(true, grows(file, offset + (off64_t)size));
    const ssize_t written =
        outcome == FAILS
            ? -1
            : NEXT(pwrite64)(file, data, outcome == HALF_WAY ? size / 2 : size, offset);
    if (outcome == HALF_WAY && action == HALF) {
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

/* SQLite runs statements of its own within statements. */
static int depth;

static void recordFailure(sqlite3 *connection, int code, const char *statement)
{
    if (depth > 0) {
        return;
    }
    const char *message = sqlite3_errmsg(connection);
    recordEvent('E', statement, message, (uint32_t)strlen(message), (uint64_t)code);
}

static uint32_t sizeOf(const void *utf16)
{
    const uint16_t *end = utf16;
    while (*end) {
        ++end;
    }
    return (uint32_t)((const char *)end - (const char *)utf16);
}

int sqlite3_prepare16_v2(
    sqlite3 *connection, const void *text, int size, sqlite3_stmt **statement, const void **tail)
{
    ++statements;
    if (action == PAUSE && statements == faultAt) {
        dprintf(channelOut, "0\n");
        readChannel();
    }
    recordEvent('S', "", text, sizeOf(text), (uint64_t)allocations);
    ++depth;
    const int result = NEXT(sqlite3_prepare16_v2)(connection, text, size, statement, tail);
    --depth;
    if (result != SQLITE_OK) {
        recordFailure(connection, result, "");
    }
    return result;
}

int sqlite3_step(sqlite3_stmt *statement)
{
    ++depth;
    const int result = NEXT(sqlite3_step)(statement);
    --depth;
    if (result != SQLITE_ROW && result != SQLITE_DONE) {
        recordFailure(sqlite3_db_handle(statement), result, sqlite3_sql(statement));
    }
    return result;
}

static sqlite3_mem_methods memory;

static bool memoryFails(void)
{
    ++allocations;
    return action == MEMORY && goesWrong(allocations);
}

static void *allocate(int size)
{
    return memoryFails() ? NULL : memory.xMalloc(size);
}

static void *reallocate(void *place, int size)
{
    return memoryFails() ? NULL : memory.xRealloc(place, size);
}

static int setSecureDelete(sqlite3 *connection, char **error, const void *api)
{
    (void)error, (void)api;
    char *pragma = sqlite3_mprintf("PRAGMA secure_delete = %s", getenv("FAULT_SECURE_DELETE"));
    sqlite3_exec(connection, pragma, NULL, NULL, NULL);
    sqlite3_free(pragma);
    return SQLITE_OK;
}

__attribute__((constructor)) static void readSwitches(void)
{
    static const char *const actions[] = {
        "", "kill", "half", "EIO", "ENOSPC", "short", "memory", "pause"};
    const char *name = getenv("FAULT_ACTION");
    for (int i = KILL; name && i <= PAUSE; ++i) {
        if (strcmp(name, actions[i]) == 0) {
            action = (enum Action)i;
        }
    }
    faultAt = numberFrom("FAULT_AT");
    forever = numberFrom("FAULT_FOREVER") != 0;
    recordsAll = numberFrom("FAULT_RECORD_ALL") != 0;
    sameRandom = numberFrom("FAULT_SAME_RANDOM") != 0;
    const char *channel = getenv("FAULT_CHANNEL");
    if (channel && sscanf(channel, "%d,%d", &channelIn, &channelOut) == 2) {
        readChannel();
    }
    if (channelIn < 0 || action == PAUSE) {
        openRecord();
    }
    if (recordsAll || action == MEMORY) {
        sqlite3_config(SQLITE_CONFIG_GETMALLOC, &memory);
        sqlite3_mem_methods counted = memory;
        counted.xMalloc = allocate;
        counted.xRealloc = reallocate;
        sqlite3_config(SQLITE_CONFIG_MALLOC, &counted);
    }
    if (getenv("FAULT_SECURE_DELETE")) {
        sqlite3_auto_extension((void (*)(void))setSecureDelete);
    }
}

struct Identifier {
    uint32_t first;
    uint16_t second;
    uint16_t third;
    uint8_t fourth[8];
};

struct Identifier _ZN5QUuid10createUuidEv(void);

/* QUuid::createUuid */
struct Identifier _ZN5QUuid10createUuidEv(void)
{
    static uint32_t number;
    return sameRandom ? (struct Identifier){++number, 0, 0x4000, {0x80}}
                      : NEXT(_ZN5QUuid10createUuidEv)();
}

/* What the run took: operations and SQLite's allocations. */
__attribute__((destructor)) static void recordCounts(void)
{
    recordEvent('N', "", NULL, 0, (uint64_t)operations);
    recordEvent('A', "", NULL, 0, (uint64_t)allocations);
}
