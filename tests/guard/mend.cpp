// Mends a database, for tests and campaigns: mend DATABASE SCHEMA_VERSIONS
// Prints the work done as JSON. Ends with 1 when nothing could be done.

#include "guard/mending.h"
#include "guard/verdict/version_table.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>

int main(int, char **arguments)
{
    const MendingResult result = mendCopies(
        QString::fromLocal8Bit(arguments[1]), VersionTable(QString::fromLocal8Bit(arguments[2])));
    static const char *const kinds[] = {"copy removed", "name given", "rows returned", "reported"};
    QJsonArray mendings;
    for (const Mending &mending : result.mendings) {
        mendings << QJsonObject{
            {"kind", kinds[static_cast<int>(mending.kind)]},
            {"table", QString::fromUtf8(mending.table)},
            {"copy", QString::fromUtf8(mending.copy)},
            {"rowsOfCopy", mending.rowsOfCopy},
            {"rowsReturned", mending.rowsReturned},
            {"reason", mending.reason}};
    }
    const QJsonObject printed = {{"mendings", mendings}, {"error", result.error}};
    std::puts(QJsonDocument(printed).toJson(QJsonDocument::Compact).constData());
    return result.error.isEmpty() ? 0 : 1;
}
