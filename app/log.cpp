#include "app/database_migrator.h"

#include <QSqlError>
#include <QSqlQuery>

void DatabaseMigrator::openLog()
{
    if (m_logFile.open(QIODevice::WriteOnly | QIODevice::Append)) {
        m_logStream.setDevice(&m_logFile);
        m_logStream.setCodec("UTF-8");
    }
}

void DatabaseMigrator::logMessage(const QString &text)
{
    if (!m_logStream.device()) {
        return;
    }
    // Unwritten text is written before the next line: a full disk may have room again.
    m_logStream.resetStatus();
    m_logStream << text << "\n";
    m_logStream.flush();
}

void DatabaseMigrator::executeOrLogText(const QString &sql)
{
    QSqlQuery query;
    if (!query.exec(sql)) {
        logMessage(query.lastError().text());
    }
}

bool DatabaseMigrator::executeOrLogDatabaseText(const QString &sql, const QString &failure)
{
    QSqlQuery query;
    if (query.exec(sql)) {
        return true;
    }
    logMessage(failure + query.lastError().databaseText());
    return false;
}

bool DatabaseMigrator::executeOrLogTwoLines(
    const QString &sql, const QString &failureLine, const QString &errorLine)
{
    QSqlQuery query;
    if (query.exec(sql)) {
        return true;
    }
    logMessage(failureLine);
    logMessage(errorLine.arg(query.lastError().text()));
    return false;
}

void DatabaseMigrator::closeForwardStep(
    bool succeeded, int version, const QString &successLine, const QString &failureLine)
{
    if (succeeded) {
        m_currentVersion = version;
        logMessage(successLine);
    } else {
        logMessage(failureLine);
    }
}
