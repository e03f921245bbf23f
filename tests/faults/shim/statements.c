/* SQLite's statements: they are recorded, and one of them waits. */
#include "shim.h"

#include <sqlite3.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static long statements;
/* SQLite runs statements of its own within statements. */
static int depth;

static void recordFailure(sqlite3 *connection, int code, const char *statement)
{
    if (depth > 0) {
        return;
    }
    const char *message = sqlite3_errmsg(connection);
    recordEvent('E', statement, message, (uint32_t)strlen(message), (uint64_t)code);
}

static uint32_t sizeOf(const void *utf16)
{
    const uint16_t *end = utf16;
    while (*end) {
        ++end;
    }
    return (uint32_t)((const char *)end - (const char *)utf16);
}

int sqlite3_prepare16_v2(
    sqlite3 *connection, const void *text, int size, sqlite3_stmt **statement, const void **tail)
{
    ++statements;
    if (switches.action == PAUSE && statements == switches.at) {
        dprintf(switches.channelOut, "0\n");
        readChannel();
    }
    recordEvent('S', "", text, sizeOf(text), (uint64_t)allocations);
    ++depth;
    const int result = NEXT(sqlite3_prepare16_v2)(connection, text, size, statement, tail);
    --depth;
    if (result != SQLITE_OK) {
        recordFailure(connection, result, "");
    }
    return result;
}

int sqlite3_step(sqlite3_stmt *statement)
{
    ++depth;
    const int result = NEXT(sqlite3_step)(statement);
    --depth;
    if (result != SQLITE_ROW && result != SQLITE_DONE) {
        recordFailure(sqlite3_db_handle(statement), result, sqlite3_sql(statement));
    }
    return result;
}

int sqlite3_busy_timeout(sqlite3 *connection, int milliseconds)
{
    const long instead = numberFrom("FAULT_BUSY_TIMEOUT");
    return NEXT(sqlite3_busy_timeout)(connection, instead ? (int)instead : milliseconds);
}

static int setForConnection(sqlite3 *connection, char **error, const void *api)
{
    (void)error, (void)api;
    char *pragma = sqlite3_mprintf("PRAGMA secure_delete = %s", getenv("FAULT_SECURE_DELETE"));
    sqlite3_exec(connection, pragma, NULL, NULL, NULL);
    sqlite3_free(pragma);
    return SQLITE_OK;
}

void setSecureDelete(void)
{
    sqlite3_auto_extension((void (*)(void))setForConnection);
}
