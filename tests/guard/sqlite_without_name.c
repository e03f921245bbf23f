/* Preloaded, it makes of the SQLite library one that does not know the name in SQLITE_LACKS: it is
   older, or was built without it. */

#define _GNU_SOURCE
#include <dlfcn.h>
#include <sqlite3.h>
#include <stdlib.h>
#include <string.h>

int sqlite3_prepare_v2(
    sqlite3 *database, const char *sql, int size, sqlite3_stmt **statement, const char **rest)
{
    int (*prepare)(sqlite3 *, const char *, int, sqlite3_stmt **, const char **);
    *(void **)&prepare = dlsym(RTLD_NEXT, "sqlite3_prepare_v2");
    const char *lacking = getenv("SQLITE_LACKS");
    return lacking && strstr(sql, lacking)
               ? prepare(database, "SELECT 1 FROM missing", -1, statement, rest)
               : prepare(database, sql, size, statement, rest);
}
