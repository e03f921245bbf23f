/* The recording: what the process did, for the harness to read. */
#include "shim.h"

#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/uio.h>

static const char logName[] = "/app/databases/sqlMigrationErrorLog.txt";
static int record = -1;

void openRecord(void)
{
    const char *file = getenv("FAULT_RECORD");
    if (file) {
        record = NEXT(open)(file, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    }
}

void recordEvent(char kind, const char *path, const void *data, uint32_t dataSize, uint64_t offset)
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

void recordOperation(
    char kind, const char *path, const void *data, uint32_t dataSize, uint64_t offset)
{
    if (switches.recordsAll || strcmp(path, logName) == 0) {
        recordEvent(kind, path, data, dataSize, offset);
    }
}

/* The number of operations and of SQLite's allocations, at the end of the run. */
__attribute__((destructor)) static void recordCounts(void)
{
    recordEvent('N', "", NULL, 0, (uint64_t)operations);
    recordEvent('A', "", NULL, 0, (uint64_t)allocations);
}
