#include "guard/recorded_version.h"

RecordedVersion recordedVersion(const SqliteConnection &connection)
{
    RecordedVersion recorded;
    SqliteStatement query(
        connection, "SELECT version FROM tableVersion WHERE tableName = 'mainSqlDb'");
    if (query.step()) {
        recorded.isKnown = true;
        if (sqlite3_column_type(query.handle(), 0) != SQLITE_NULL) {
            recorded.number = sqlite3_column_int64(query.handle(), 0);
        }
        return recorded;
    }
    const int primaryCode = query.result() & 0xff;
    switch (primaryCode) {
    case SQLITE_DONE:
    case SQLITE_ERROR: // no such table or column
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
        recorded.isKnown = true;
        break;
    default:
        break;
    }
    return recorded;
}

QString versionText(const RecordedVersion &version)
{
    if (!version.isKnown) {
        return "unknown";
    }
    return version.number ? QString::number(*version.number) : QString("no version");
}
