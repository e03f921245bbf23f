/* Preloaded, it makes of the SQLite library one that was built with SQLITE_DQS=0: texts in double
   quotes are names. The error has the words of SQLite 3.46 and newer. */

#define _GNU_SOURCE
#include <dlfcn.h>
#include <sqlite3.h>
#include <string.h>

const char *sqlite3_errmsg(sqlite3 *database)
{
    const char *(*message)(sqlite3 *);
    *(void **)&message = dlsym(RTLD_NEXT, "sqlite3_errmsg");
    const char *words = message(database);
    return strcmp(words, "no such column: text") == 0
               ? "no such column: \"text\" - should this be a string literal in single-quotes?"
               : words;
}

int sqlite3_open_v2(const char *path, sqlite3 **database, int flags, const char *vfs)
{
    int (*open)(const char *, sqlite3 **, int, const char *);
    *(void **)&open = dlsym(RTLD_NEXT, "sqlite3_open_v2");
    const int result = open(path, database, flags, vfs);
    if (result == SQLITE_OK) {
        sqlite3_db_config(*database, SQLITE_DBCONFIG_DQS_DML, 0, (int *)0);
        sqlite3_db_config(*database, SQLITE_DBCONFIG_DQS_DDL, 0, (int *)0);
    }
    return result;
}
