/* Preloaded into a guard and every process that it starts. It ends a process at a moment when
 * others depend on it:
 *
 *   FATAL_MOMENT  fork: a guard has just forked; release: bubblewrap is about to let its child go on
 *   FATAL_PLACE   which guard or bubblewrap: outer; inner, the one that the outer guard has started
 *   FATAL_VICTIM  self: the process that is there; parent: its parent; both: the parent first; none:
 *                 that process makes the file FATAL_FILE and waits a while
 *
 * Without these variables it only lets every process kill itself.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

enum { SECONDS_FOR_THE_PARENT = 1, SECONDS_FOR_THE_TEST = 2 };

static bool is(const char *variable, const char *value)
{
    const char *found = getenv(variable);
    return found && strcmp(found, value) == 0;
}

static bool isInnerGuard(pid_t process)
{
    char path[32];
    char command[4096] = "";
    snprintf(path, sizeof path, "/proc/%d/cmdline", (int)process);
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    const ssize_t size = read(file, command, sizeof command);
    close(file);
    return size > 0 && memmem(command, (size_t)size, "--inside", strlen("--inside"));
}

/* guard: the process whose place it is */
static void endVictim(const char *moment, const char *program, pid_t guard)
{
    if (strcmp(program_invocation_short_name, program) != 0 || !is("FATAL_MOMENT", moment) ||
        !is("FATAL_PLACE", isInnerGuard(guard) ? "inner" : "outer")) {
        return;
    }
    if (is("FATAL_VICTIM", "parent") || is("FATAL_VICTIM", "both")) {
        kill(getppid(), SIGKILL);
        sleep(SECONDS_FOR_THE_PARENT);
    }
    if (is("FATAL_VICTIM", "none")) {
        close(creat(getenv("FATAL_FILE"), 0600));
        sleep(SECONDS_FOR_THE_TEST);
    }
    if (is("FATAL_VICTIM", "parent") || is("FATAL_VICTIM", "none")) {
        return;
    }
    kill(getpid(), SIGKILL);
}

/* The first process of a PID namespace cannot send SIGKILL to itself. */
int kill(pid_t process, int number)
{
    if (process == 1 && getpid() == 1 && number == SIGKILL) {
        __builtin_trap();
    }
    return (int)syscall(SYS_kill, process, number);
}

pid_t fork(void)
{
    pid_t (*const next)(void) = (pid_t(*)(void))dlsym(RTLD_NEXT, "fork");
    const pid_t child = next();
    if (child > 0) {
        endVictim("fork", "migration-guard", getpid());
    }
    return child;
}

ssize_t write(int file, const void *data, size_t size)
{
    ssize_t (*const next)(int, const void *, size_t) =
        (ssize_t(*)(int, const void *, size_t))dlsym(RTLD_NEXT, "write");
    uint64_t number = 0;
    if (size == sizeof number) {
        memcpy(&number, data, size);
    }
    if (number == 1) {
        endVictim("release", "bwrap", getppid());
    }
    return next(file, data, size);
}
