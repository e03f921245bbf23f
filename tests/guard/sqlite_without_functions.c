/* Preloaded, it makes of the SQLite library one that has no memory for the function with which the
   guard tells rows when it mends. */

#define _GNU_SOURCE
#include <dlfcn.h>
#include <sqlite3.h>
#include <string.h>

typedef void Function(sqlite3_context *, int, sqlite3_value **);

int sqlite3_create_function_v2(
    sqlite3 *database, const char *name, int arguments, int encoding, void *application,
    Function *function, Function *step, void (*final)(sqlite3_context *), void (*destroy)(void *))
{
    int (*create)(
        sqlite3 *, const char *, int, int, void *, Function *, Function *,
        void (*)(sqlite3_context *), void (*)(void *));
    *(void **)&create = dlsym(RTLD_NEXT, "sqlite3_create_function_v2");
    return strcmp(name, "row_key") == 0 ? SQLITE_NOMEM
                                        : create(
                                              database, name, arguments, encoding, application,
                                              function, step, final, destroy);
}
