/* Mistakes that a guard could make. The harness has to notice them. */
#include "tree.h"

#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <unistd.h>

static const char database[] = "/app/databases/my.db.sqlite";
static const char journal[] = "/app/databases/my.db.sqlite-journal";
static const char copy[] = "/app/databases/copy";

static bool isAsked(const char *mistake)
{
    return shared && numberFrom(mistake) == 1;
}

void deleteJournal(void)
{
    if (isAsked("FAULT_DELETES_JOURNAL") && self == GUARD) {
        NEXT(unlink)(journal);
    }
}

int fcntl64(int file, int command, ...)
{
    va_list arguments;
    va_start(arguments, command);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    if (command == F_SETLK && self == GUARD_IN_MEMORY && isAsked("FAULT_NO_LOCKS")) {
        return 0;
    }
    return NEXT(fcntl64)(file, command, argument);
}

/* It starts at the very end: the guard ends every process that it has before. */
__attribute__((destructor)) static void leaveProcess(void)
{
    if (isAsked("FAULT_LEAVES_PROCESS") && self == GUARD && fork() == 0) {
        pause();
    }
}

__attribute__((destructor)) static void renameOverDatabase(void)
{
    if (self != GUARD || !isAsked("FAULT_RENAMES")) {
        return;
    }
    asideFromTheRun = true;
    FILE *from = fopen(database, "r");
    FILE *to = fopen(copy, "w");
    for (int next = from && to ? getc(from) : EOF; next != EOF; next = getc(from)) {
        putc(next, to);
    }
    if (from && to && fclose(from) == 0 && fclose(to) == 0) {
        NEXT(rename)(copy, database);
    }
}
