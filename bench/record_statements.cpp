#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>

/// Preloaded, stands before SQLite's function that Qt prepares every statement with, and appends the
/// statement to the file RECORDED_STATEMENTS: UTF-16 as it came, ended by a zero character.
extern "C" int sqlite3_prepare16_v2(
    sqlite3 *connection, const void *sql, int size, sqlite3_stmt **statement, const void **tail)
{
    if (FILE *record = std::fopen(std::getenv("RECORDED_STATEMENTS"), "ab")) {
        std::fwrite(sql, 1, static_cast<size_t>(size), record);
        std::fclose(record);
    }
    static const auto prepare =
        reinterpret_cast<decltype(&sqlite3_prepare16_v2)>(dlsym(RTLD_NEXT, "sqlite3_prepare16_v2"));
    return prepare(connection, sql, size, statement, tail);
}
