/* Makes the file system in memory full, or too small from the start. */
#include "tree.h"

#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <unistd.h>

void fillMemory(void)
{
    const int64_t room = numberFrom("FAULT_FILL");
    struct statvfs status;
    if (room < 0 || statvfs("/app/databases", &status) != 0) {
        return;
    }
    ++shared->faults;
    const int64_t size = (int64_t)(status.f_bavail * status.f_frsize) - room;
    const int ballast = NEXT(open)("/app/databases/temporary/ballast", O_WRONLY | O_CREAT, 0600);
    if (ballast >= 0 && size > 0) {
        posix_fallocate(ballast, 0, size);
    }
    NEXT(close)(ballast);
}

/* Bubblewrap mounts the file system in memory. */
int mount(
    const char *source, const char *target, const char *type, unsigned long flags, const void *data)
{
    const int64_t room = numberFrom("FAULT_ROOM");
    const char *size = data && type && strcmp(type, "tmpfs") == 0 ? strstr(data, "size=") : NULL;
    if (room < 0 || !size || !shared) {
        return NEXT(mount)(source, target, type, flags, data);
    }
    char options[128];
    snprintf(
        options,
        sizeof options,
        "%.*ssize=%lld",
        (int)(size - (const char *)data),
        (const char *)data,
        (long long)room);
    ++shared->faults;
    return NEXT(mount)(source, target, type, flags, options);
}
