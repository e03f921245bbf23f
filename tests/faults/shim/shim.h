/*
 * Preloaded into a program. It counts what the program asks of the disk below the scratch device,
 * and makes one of these operations, or all from one on, fail. An operation is an open that may
 * create, a write, a truncation, a sync, an unlink or a rename.
 *
 *   FAULT_AT=N        the operation that fails; the first is 1
 *   FAULT_ACTION      kill: the process ends before it; half: the process ends after half of the
 *                     write; EIO: it fails; ENOSPC: it fails if it needs room on the disk; short:
 *                     only half of the write is done; memory: SQLite's allocation N fails instead
 *                     of an operation; pause: nothing fails, statement N waits
 *   FAULT_FOREVER=1   all from N on fail
 *   FAULT_CHANNEL=IN,OUT  two file descriptors, used in place of FAULT_AT. N is read from IN. At
 *                     operation or allocation N the process makes a copy of itself. The copy meets
 *                     the fault, and its wait status is written to OUT. Then the process reads the
 *                     next N, puts the files back as they were and goes on undisturbed. A pause
 *                     writes a line to OUT and ends with the next N.
 *   FAULT_RECORD=F    F gets the statements, their failures and the writes to the log; with a
 *                     channel, those of the copy
 *   FAULT_RECORD_ALL=1    F also gets the operations with their data, for a replay
 *   FAULT_SAME_RANDOM=1   random numbers and identifiers are the same in every run
 *   FAULT_SECURE_DELETE=ON|OFF  for every connection, in place of SQLite's default
 *   FAULT_BUSY_TIMEOUT=MS       in place of the time that the program asks for
 *
 * operations.c  which operations there are, and how one fails
 * branch.c      copies of the process, and the files that it puts back after one
 * record.c      the recording
 * memory.c      SQLite's allocations
 * statements.c  SQLite's statements and connections
 * switches.c    the variables above, and random numbers
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdbool.h>
#include <stdint.h>

/* The function that the shim replaces. */
#define NEXT(function)                                                                             \
    ({                                                                                             \
        static __typeof__(&function) next;                                                         \
        if (!next) {                                                                               \
            next = (__typeof__(&function))dlsym(RTLD_NEXT, #function);                             \
        }                                                                                          \
        next;                                                                                      \
    })

/* The program must not see these names. */
#pragma GCC visibility push(hidden)

enum { FILES = 256, PATH_SIZE = 320 };

enum Action { NO_ACTION, KILL, HALF, FAIL_EIO, FAIL_ENOSPC, SHORT, MEMORY, PAUSE };

struct Switches {
    enum Action action;
    long at;
    bool forever;
    int channelIn; /* -1 without a channel */
    int channelOut;
    bool recordsAll;
    bool sameRandom;
};
extern struct Switches switches;

/* Returns the number in a variable, 0 without one. */
long numberFrom(const char *variable);

/* The folders whose files are put back. */
extern const char *const deviceFolders[2];
/* The device's files that the process has open, by descriptor. */
extern char openPaths[FILES][PATH_SIZE];
extern long operations;
extern long allocations;

/* True while the shim itself works with files. */
extern bool asideFromTheRun;

/* Returns true if the operation or allocation with this number fails. With a channel, the copy that
   meets the fault is made here. */
bool goesWrong(long number);

/* Reads the next number from the channel. */
void readChannel(void);

/* Begins the recording, if one is asked for. */
void openRecord(void);

/* Kind, lengths of path and data, offset (a truncation's size, SQLite's allocations before a
   statement, an error's code), path (an error's statement), data. */
void recordEvent(char kind, const char *path, const void *data, uint32_t dataSize, uint64_t offset);

/* The same for an operation, which is left out unless it is about the log or all are recorded. */
void recordOperation(
    char kind, const char *path, const void *data, uint32_t dataSize, uint64_t offset);

/* Counts SQLite's allocations from now on. */
void countAllocations(void);

/* Applies FAULT_SECURE_DELETE to every connection. */
void setSecureDelete(void);

#pragma GCC visibility pop
