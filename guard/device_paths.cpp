#include "guard/device_paths.h"

#include <QDir>
#include <QFileInfo>

const char *const databaseName = "my.db.sqlite";
const char *const logName = "sqlMigrationErrorLog.txt";

const char *const programName = "database-migrator";
const char *const poolPath = "/usr/bin/harlo/pool";
const char *const platformPath = "/etc/harlo/platform";

namespace
{
QString existingDirectory(const QString &path)
{
    const QFileInfo directory(path);
    return directory.isDir() ? directory.canonicalFilePath() : QString();
}
} // namespace

DevicePaths::DevicePaths(const QString &application)
{
    const QFileInfo executable(QDir(application).filePath(programName));
    QString directory = QFileInfo(application).canonicalFilePath();
    if (executable.isFile() && executable.isExecutable()) {
        program = executable.canonicalFilePath();
        // The program looks for its files in its real directory, not in that of a link to it.
        directory = QFileInfo(program).absolutePath();
    }
    knownVersions = directory + "/schema-versions.json";
    references = directory;
    pool = existingDirectory(poolPath);
    platform = platformPath;
    databaseEntry = directory + "/databases/" + databaseName;
    placeDatabases(existingDirectory(directory + "/databases"));
    view.program = program;
    view.databases = databases;
    view.pool = pool;
}

void DevicePaths::placeDatabases(const QString &directory)
{
    databases = directory;
    if (databases.isEmpty()) {
        return;
    }
    const QDir beside(databases);
    const QFileInfo file(beside.filePath(databaseName));
    databaseLinkIsBroken = file.isSymLink() && !file.exists();
    if (file.exists() && !(file.isFile() && file.size() == 0)) {
        database = file.canonicalFilePath();
    }
    log = beside.filePath(logName);
    lastMigration = beside.filePath("lastMigration.json");
    kept = beside.filePath("before-migration.sqlite");
    replaced = beside.filePath("replaced-by-restore.sqlite");
    note = beside.filePath("migration-guard.note");
    staging = beside.filePath("migration-guard.staging");
    copy = beside.filePath("migration-guard.copy");
    replacedLog = beside.filePath("replaced-by-restore.wal");
}
