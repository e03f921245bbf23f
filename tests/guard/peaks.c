/* Preloaded into a guard and every process that it starts. Before a file can become smaller or go away
 * it writes a line into /app/peaks: the program's name, the bytes in use where it sees the databases
 * (for the guard that is the disk, for the program its staging), and the most memory that the process
 * had so far, in KiB. In between, files only grow, so the largest use is always seen.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/resource.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

static int closeFile(int file)
{
    return (int)syscall(SYS_close, file);
}

static void note(void)
{
    const int before = errno;
    struct statvfs room;
    struct rusage usage;
    const int file = open("/app/peaks", O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (file >= 0 && statvfs("/small/databases", &room) == 0 &&
        getrusage(RUSAGE_SELF, &usage) == 0) {
        dprintf(
            file,
            "%s %llu %ld\n",
            program_invocation_short_name,
            (unsigned long long)(room.f_blocks - room.f_bfree) * room.f_frsize,
            usage.ru_maxrss);
    }
    if (file >= 0) {
        closeFile(file);
    }
    errno = before;
}

__attribute__((constructor)) static void noteStart(void)
{
    note();
}

__attribute__((destructor)) static void noteEnd(void)
{
    note();
}

int unlink(const char *path)
{
    int (*const next)(const char *) = (int (*)(const char *))dlsym(RTLD_NEXT, "unlink");
    note();
    return next(path);
}

int rename(const char *path, const char *name)
{
    int (*const next)(const char *, const char *) =
        (int (*)(const char *, const char *))dlsym(RTLD_NEXT, "rename");
    note();
    return next(path, name);
}

int ftruncate(int file, off_t size)
{
    int (*const next)(int, off_t) = (int (*)(int, off_t))dlsym(RTLD_NEXT, "ftruncate");
    note();
    return next(file, size);
}

int ftruncate64(int file, off64_t size)
{
    int (*const next)(int, off64_t) = (int (*)(int, off64_t))dlsym(RTLD_NEXT, "ftruncate64");
    note();
    return next(file, size);
}

/* SQLite's temporary files have no name and go away here. */
int close(int file)
{
    note();
    return closeFile(file);
}
