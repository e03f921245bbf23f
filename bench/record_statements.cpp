#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>

// Preloaded, it replaces the two functions of SQLite that Qt runs every statement with. It appends
// each statement to the file RECORDED_STATEMENTS, in UTF-8, with its bound values, ended by a zero
// character. A statement that SQLite refuses to prepare does nothing and is left out.

static void record(sqlite3_stmt *statement)
{
    if (FILE *record = std::fopen(std::getenv("RECORDED_STATEMENTS"), "ab")) {
        char *sql = sqlite3_expanded_sql(statement);
        std::fputs(sql, record);
        std::fputc('\0', record);
        sqlite3_free(sql);
        std::fclose(record);
    }
}

/// Records a statement without parameters: Qt runs it once, right after this.
extern "C" int sqlite3_prepare16_v2(
    sqlite3 *connection, const void *sql, int size, sqlite3_stmt **statement, const void **tail)
{
    static const auto prepare =
        reinterpret_cast<decltype(&sqlite3_prepare16_v2)>(dlsym(RTLD_NEXT, "sqlite3_prepare16_v2"));
    const int result = prepare(connection, sql, size, statement, tail);
    if (result == SQLITE_OK && sqlite3_bind_parameter_count(*statement) == 0) {
        record(*statement);
    }
    return result;
}

/// Records a statement with parameters, once for each set of values. SQLite itself calls this too,
/// never with parameters.
extern "C" int sqlite3_step(sqlite3_stmt *statement)
{
    static const auto step =
        reinterpret_cast<decltype(&sqlite3_step)>(dlsym(RTLD_NEXT, "sqlite3_step"));
    if (sqlite3_bind_parameter_count(statement) > 0 && sqlite3_stmt_busy(statement) == 0) {
        record(statement);
    }
    return step(statement);
}
