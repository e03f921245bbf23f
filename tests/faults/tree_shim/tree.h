/* A library that is preloaded into a program and every process that it starts: the guard,
 * bubblewrap, the guard in memory, bubblewrap again and the program. It counts their operations on
 * the disk and on staging, all in one count, and makes one of them fail. An operation is an open
 * that may create, a write, a truncation, a sync, an unlink, a rename, a directory that is made or
 * removed, or a change of owner or mode. Random numbers, identifiers and the guard's clock are the
 * same in every run.
 *
 *   FAULT_SHARED=F    the counts, which all processes map
 *   FAULT_DATABASES=D:I  device and inode of the real directory: in the program another one, staging,
 *                     has its path
 *   FAULT_AT=N        the operation that fails; the first is 1
 *   FAULT_ACTION      kill: the process ends before it; half: the process ends after half of the
 *                     write; EIO: it fails; ENOSPC: it fails if it needs room; short: only half of
 *                     the write is done; memory: the guard's allocation N fails instead of an
 *                     operation; pause: nothing fails, the process waits for the harness
 *   FAULT_FOREVER=1   all from N on fail: operations at the same place, memory or the disk
 *   FAULT_RECORD=F    F gets the operations, with their data if they are on the disk
 *   FAULT_ROOM=BYTES  the file system in memory has only so much
 *   FAULT_FILL=BYTES  when the program begins, something leaves only so much room in that
 *
 * Mistakes that the harness has to notice:
 *   FAULT_NO_LOCKS=1  the guard only seems to lock files
 *   FAULT_DELETES_JOURNAL=1  it begins with the journal's removal
 *   FAULT_RENAMES=1   it ends with a copy renamed over the database
 *   FAULT_LEAVES_PROCESS=1  it starts a process that never ends
 *
 * operations.c  which operations there are, and how one fails
 * processes.c   the variables above, the processes, what they share, and the recording
 * rooms.c       memory that is full
 * mistakes.c    the mistakes
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdbool.h>
#include <stdint.h>
#include <sys/types.h>

/* The function that the shim replaces. */
#define NEXT(function)                                                                             \
    ({                                                                                             \
        static __typeof__(&function) next;                                                         \
        if (!next) {                                                                               \
            next = (__typeof__(&function))dlsym(RTLD_NEXT, #function);                             \
        }                                                                                          \
        next;                                                                                      \
    })

/* The programs must not see these names. */
#pragma GCC visibility push(hidden)

enum { FILES = 256, PATH_SIZE = 320 };

enum Action { NO_ACTION, KILL, HALF, FAIL_EIO, FAIL_ENOSPC, SHORT, MEMORY, PAUSE };

enum Process { GUARD, BUBBLEWRAP, GUARD_IN_MEMORY, BUBBLEWRAP_IN_MEMORY, PROGRAM, PROCESSES, NONE };

/* Where an operation is: the device's own files, staging on the disk, staging in memory. */
enum Place { NOWHERE, DISK, STAGING_ON_DISK, STAGING_IN_MEMORY };

/* The memory that all processes share. The harness reads it. */
struct Shared {
    int64_t operations;
    int64_t allocations; /* of the guard */
    int64_t faults;      /* how many were met */
    int64_t inMemory;    /* the place of the first one */
    int64_t waits;       /* 1 while a process waits for the harness */
    int64_t unguarded;   /* operations of the program on the device's own files */
    int64_t processes[PROCESSES];
};
extern struct Shared *shared;

struct Switches {
    enum Action action;
    int64_t at;
    bool forever;
};
extern struct Switches switches;

/* The role of this process. */
extern enum Process self;

/* True while the shim itself works with files. */
extern bool asideFromTheRun;

/* Returns the number in a variable, -1 without one. */
int64_t numberFrom(const char *variable);

/* Where a path leads in this process; NULL leads nowhere. */
enum Place placeOf(const char *path);

/* Waits until the harness says that the process may go on. */
void waitForHarness(void);

/* Kind, process, place, lengths of path and data, offset (a truncation's size), path, data. */
void recordOperation(
    char kind, enum Place place, const char *path, const void *data, uint32_t dataSize,
    uint64_t offset);

/* FAULT_DELETES_JOURNAL. */
void deleteJournal(void);

/* FAULT_LEAVES_PROCESS. */

/* Leaves only FAULT_FILL bytes where the program works. */
void fillMemory(void);

#pragma GCC visibility pop
