#include "app/database_migrator.h"
#include "app/text_file_reader.h"
#include "schema/statements.h"

#include <QDir>
#include <QSqlError>
#include <QSqlQuery>

DatabaseMigrator::DatabaseMigrator(int &argumentCount, char **arguments)
    : QCoreApplication(argumentCount, arguments),
      m_logFile(applicationDirPath() + "/databases/sqlMigrationErrorLog.txt")
{
    fillRegistries();
    openLog();
    addLibraryPath(applicationDirPath() + "/quillmoor");
    m_database = QSqlDatabase::addDatabase("QSQLITE");

    QDir directory(applicationDirPath());
    if (directory.cd("databases")) {
        m_databasePath = directory.absolutePath() + "/" + "my.db.sqlite";
        openDatabase();
        chooseTargetVersion();
        m_softwareVersion = readSoftwareVersion();
    }

    logMessage(QString("\n*****Beginning database migration from version: %1 to version: %2")
                   .arg(QString::number(m_currentVersion), QString::number(m_targetVersion)));
    m_migrationNeeded = m_currentVersion != m_targetVersion;
    m_platform = readPlatform();
}

DatabaseMigrator::~DatabaseMigrator()
{
    m_database.close();
    m_logFile.flush();
    m_logFile.close();
}

QString DatabaseMigrator::readSoftwareVersion() const
{
    TextFileReader versionFile(applicationDirPath() + "/quillmoor/softwareversion.txt");
    return versionFile.open() ? versionFile.readFirstLine() : QString();
}

void DatabaseMigrator::openDatabase()
{
    m_database.setDatabaseName(m_databasePath);
    if (!m_database.open()) {
        logMessage(m_database.lastError().text());
        return;
    }
    executeQuietly("PRAGMA foreign_keys = ON");
    m_currentVersion =
        firstValue("SELECT version FROM tableVersion WHERE tableName = 'mainSqlDb'").toInt();
    addColumnIfNotExists("tableVersion", "MirelVersion", "TEXT");
    m_storedMirelVersion =
        firstValue("SELECT MirelVersion FROM tableVersion WHERE tableName = 'mainSqlDb'")
            .toString();
    m_alternateVersion =
        firstValue("SELECT version FROM tableVersion WHERE tableName = 'altSqlDb'").toInt();
}

void DatabaseMigrator::chooseTargetVersion()
{
    const QStringList commandLine = arguments();
    if (commandLine.size() > 1) {
        m_targetVersion = commandLine[1].toInt();
    } else {
        m_targetVersion = m_alternateVersion;
        m_targetTakenFromAlternate = true;
    }
}

QString DatabaseMigrator::readPlatform() const
{
    TextFileReader platformFile("/etc/harlo/platform");
    return platformFile.open() ? platformFile.readFirstLine() : "TORVIK";
}
