/* Copies of the process that meet a fault, while the process itself goes on undisturbed. */
#include "shim.h"

#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

const char *const deviceFolders[] = {"/app/databases", "/usr/bin/harlo/pool"};
bool asideFromTheRun;

/* The files of the device as they were when the copy was made. */
struct Saved {
    struct Saved *next;
    char path[PATH_SIZE];
    char *content;
    size_t size;
};

static void forEachFile(void (*visit)(const char *path, void *context), void *context)
{
    for (size_t i = 0; i < sizeof deviceFolders / sizeof *deviceFolders; ++i) {
        DIR *folder = opendir(deviceFolders[i]);
        for (struct dirent *entry = readdir(folder); entry; entry = readdir(folder)) {
            if (entry->d_type == DT_REG) {
                char path[PATH_SIZE];
                snprintf(path, sizeof path, "%s/%s", deviceFolders[i], entry->d_name);
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
    /* The process loses its locks on the file here. No other process wants them. */
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

/* The copy may have removed the file, which comes back as a new one: open descriptors must be of the
   new one. */
static void reopen(const char *path)
{
    struct stat status;
    stat(path, &status);
    for (int i = 0; i < FILES; ++i) {
        struct stat own;
        if (strcmp(path, openPaths[i]) == 0 && fstat(i, &own) == 0 && own.st_ino != status.st_ino) {
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

void readChannel(void)
{
    char line[32] = "";
    size_t size = 0;
    while (size < sizeof line - 1 && NEXT(read)(switches.channelIn, line + size, 1) == 1 &&
           line[size] != '\n') {
        ++size;
    }
    switches.at = atol(line);
}

/* Returns twice: in the copy, which meets the fault now, and later in the process itself. */
static void branch(void)
{
    struct Saved *saved = NULL;
    asideFromTheRun = true;
    forEachFile(save, &saved);
    const pid_t copy = fork();
    if (copy == 0) {
        switches.channelIn = -1;
        openRecord();
    } else {
        int status = 0;
        waitpid(copy, &status, 0);
        dprintf(switches.channelOut, "%d\n", status);
        readChannel();
        putBack(saved);
    }
    asideFromTheRun = false;
}

bool goesWrong(long number)
{
    if (switches.channelIn >= 0 && number == switches.at) {
        branch();
    }
    return switches.at > 0 && (number == switches.at || (switches.forever && number > switches.at));
}
