/* Preloaded, it makes of the SQLite library one that was built with SQLITE_DQS=0: texts in double
   quotes are names. */

#define _GNU_SOURCE
#include <dlfcn.h>
#include <sqlite3.h>

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
