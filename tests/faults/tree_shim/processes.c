/* The processes, the switches, the memory that the processes share, and the recording. */
#include "tree.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

enum { WAIT_NANOSECONDS = 1000000 };

static const char databases[] = "/app/databases";
static const char pool[] = "/usr/bin/harlo/pool";
static const char memory[] = "/.migration-guard";
static const char stagingOnDisk[] = "/app/databases/migration-guard.staging";

struct Switches switches;
struct Shared *shared;
enum Process self = NONE;
bool asideFromTheRun;

static int record = -1;
/* Where the path of the databases leads in this process: to the disk, or to staging. */
static enum Place databasesPlace = DISK;

int64_t numberFrom(const char *variable)
{
    const char *value = getenv(variable);
    return value ? atoll(value) : -1;
}

static enum Process findSelf(void)
{
    char path[PATH_SIZE] = "";
    if (readlink("/proc/self/exe", path, sizeof path - 1) < 0) {
        return NONE;
    }
    const char *name = strrchr(path, '/') + 1;
    const bool inMemory = shared->processes[GUARD_IN_MEMORY] != 0;
    if (strcmp(name, "migration-guard") == 0) {
        return shared->processes[GUARD] == 0 ? GUARD : GUARD_IN_MEMORY;
    }
    if (strcmp(name, "bwrap") == 0) {
        return inMemory ? BUBBLEWRAP_IN_MEMORY : BUBBLEWRAP;
    }
    return strcmp(name, "database-migrator") == 0 ? PROGRAM : NONE;
}

static void findDatabases(void)
{
    unsigned long long device = 0;
    unsigned long long inode = 0;
    struct stat status;
    const char *value = getenv("FAULT_DATABASES");
    if (!value || sscanf(value, "%llu:%llu", &device, &inode) != 2 ||
        stat(databases, &status) != 0) {
        return;
    }
    if (status.st_dev != device) {
        databasesPlace = STAGING_IN_MEMORY;
    } else if (status.st_ino != inode) {
        databasesPlace = STAGING_ON_DISK;
    }
}

static bool isBelow(const char *path, const char *directory)
{
    const size_t size = strlen(directory);
    return strncmp(path, directory, size) == 0 && (path[size] == '/' || path[size] == '\0');
}

enum Place placeOf(const char *path)
{
    if (!path || asideFromTheRun || !shared || self == NONE) {
        return NOWHERE;
    }
    if (isBelow(path, memory)) {
        return STAGING_IN_MEMORY;
    }
    if (isBelow(path, stagingOnDisk)) {
        return STAGING_ON_DISK;
    }
    return isBelow(path, databases) || isBelow(path, pool) ? databasesPlace : NOWHERE;
}

void waitForHarness(void)
{
    ++shared->faults;
    __atomic_store_n(&shared->waits, 1, __ATOMIC_SEQ_CST);
    while (__atomic_load_n(&shared->waits, __ATOMIC_SEQ_CST) == 1) {
        nanosleep(&(struct timespec){.tv_nsec = WAIT_NANOSECONDS}, NULL);
    }
}

void recordOperation(
    char kind, enum Place place, const char *path, const void *data, uint32_t dataSize,
    uint64_t offset)
{
    if (record < 0) {
        return;
    }
    struct __attribute__((packed)) {
        char kind;
        uint8_t process;
        uint8_t place;
        uint16_t pathSize;
        uint32_t dataSize;
        uint64_t offset;
    } head = {
        kind,
        (uint8_t)self,
        (uint8_t)place,
        (uint16_t)strlen(path),
        place == DISK ? dataSize : 0,
        offset};
    const struct iovec parts[] = {
        {&head, sizeof head}, {(void *)path, head.pathSize}, {(void *)data, head.dataSize}};
    const size_t size = sizeof head + head.pathSize + head.dataSize;
    if (writev(record, parts, 3) != (ssize_t)size) {
        abort();
    }
}

static void readSwitches(void)
{
    static const char *const actions[] = {
        "", "kill", "half", "EIO", "ENOSPC", "short", "memory", "pause"};
    const char *name = getenv("FAULT_ACTION");
    for (int i = KILL; name && i <= PAUSE; ++i) {
        if (strcmp(name, actions[i]) == 0) {
            switches.action = (enum Action)i;
        }
    }
    switches.at = numberFrom("FAULT_AT");
    switches.forever = numberFrom("FAULT_FOREVER") == 1;
}

__attribute__((constructor)) static void begin(void)
{
    const char *sharedFile = getenv("FAULT_SHARED");
    const int file = sharedFile ? NEXT(open)(sharedFile, O_RDWR | O_CLOEXEC) : -1;
    if (file < 0) {
        return;
    }
    void *mapped = mmap(NULL, sizeof *shared, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    NEXT(close)(file);
    if (mapped == MAP_FAILED) {
        abort();
    }
    shared = mapped;
    readSwitches();
    self = findSelf();
    if (self == NONE) {
        return;
    }
    findDatabases();
    const char *recordFile = getenv("FAULT_RECORD");
    if (recordFile) {
        record = NEXT(open)(recordFile, O_WRONLY | O_APPEND | O_CLOEXEC);
    }
    if (self == PROGRAM && databasesPlace == STAGING_IN_MEMORY) {
        fillMemory();
    }
    shared->processes[self] = getpid();
    deleteJournal();
}
