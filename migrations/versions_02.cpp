#include "app/database_migrator.h"
#include "schema/table_recreation.h"

// ---- Version 2: product settings per machine configuration. -------------------------------------

namespace
{
QString inLatin1(const QString &text)
{
    return QString::fromLatin1(text.toLatin1());
}

QString sixDigits(const QVariant &real)
{
    return QString::number(real.toDouble(), 'g', 6);
}

/// @param create makes the table of the version to go to
/// @param insert makes the INSERT statement for one row of the other version
/// @param operation the step's name, as its log lines have it
TableRecreation productSettings(
    const QString &create, QString (*insert)(const QSqlQuery &row), const QString &operation)
{
    TableRecreation settings;
    settings.table = "productControl_productSettings";
    settings.tableAside = "productControl_productSettings_old";
    settings.rename =
        "ALTER TABLE productControl_productSettings RENAME TO productControl_productSettings_old";
    settings.renameFailure =
        QString("The ALTER TABLE RENAME query in %1() failed!  The query error was: ")
            .arg(operation);
    settings.create = create;
    settings.createFailure =
        QString("The CREATE TABLE IF NOT EXISTS query in %1() failed!  The query error was: ")
            .arg(operation);
    settings.select = "SELECT * FROM productControl_productSettings_old";
    settings.selectFailure =
        QString(
            "SELECT * FROM productControl_productSettings_old query in %1() failed!  The query error was: ")
            .arg(operation);
    settings.insert = insert;
    settings.renameBack =
        "ALTER TABLE productControl_productSettings_old RENAME TO productControl_productSettings";
    settings.insertFailure =
        QString("Database migration failed in %1()!  The error was: ").arg(operation);
    return settings;
}
} // namespace

void DatabaseMigrator::updateToVersion2()
{
    const TableRecreation settings = productSettings(
        "CREATE TABLE IF NOT EXISTS productControl_productSettings (productId varchar(40), "
        "displayName varchar(40), tankCapacity REAL, machineConfigId INTEGER, "
        "maxAchievableRate REAL, timeToApplication REAL, lastAppliedRate REAL, "
        "calibratedInUsUnits BOOLEAN DEFAULT 0, PRIMARY KEY (productId, machineConfigId),"
        "FOREIGN KEY (machineConfigId) REFERENCES MC_MachineConfig(id) ON DELETE CASCADE)",
        [](const QSqlQuery &row) {
            return QString("INSERT OR REPLACE INTO productControl_productSettings "
                           "VALUES('%1', '%2', %3, %4, %5, %6, %7, %8)")
                .arg(
                    row.value(0).toString(),
                    row.value(1).toString(),
                    sixDigits(row.value(2)),
                    QString::number(row.value(3).toLongLong()),
                    sixDigits(row.value(4)),
                    sixDigits(row.value(5)),
                    sixDigits(row.value(6)),
                    "0");
        },
        "updateToVersion2");
    if (const auto failure = recreateTable(*this, settings)) {
        logMessage(failure->line + inLatin1(failure->errorText));
        return;
    }
    m_currentVersion = 2;
    logMessage("Database migration to version 2 completed successfully!");
}

void DatabaseMigrator::revertFromVersion2()
{
    const TableRecreation settings = productSettings(
        "CREATE TABLE IF NOT EXISTS productControl_productSettings (productId varchar(40) primary key, "
        "displayName varchar(40), tankCapacity REAL, machineConfigId INTEGER, "
        "maxAchievableRate REAL, timeToApplication REAL, lastAppliedRate REAL, "
        "FOREIGN KEY (machineConfigId) REFERENCES MC_MachineConfig(id) ON DELETE CASCADE)",
        [](const QSqlQuery &row) {
            // Kept on purpose: the flag of version 2 is not carried back.
            return QString("INSERT OR REPLACE INTO productControl_productSettings "
                           "VALUES('%1', '%2', %3, %4, %5, %6, %7)")
                .arg(
                    row.value(0).toString(),
                    row.value(1).toString(),
                    sixDigits(row.value(2)),
                    QString::number(row.value(3).toLongLong()),
                    sixDigits(row.value(4)),
                    sixDigits(row.value(5)),
                    sixDigits(row.value(6)));
        },
        "revertFromVersion2");
    if (const auto failure = recreateTable(*this, settings)) {
        logMessage(failure->line + inLatin1(failure->errorText));
        return;
    }
    m_currentVersion = 1;
}

bool DatabaseMigrator::getUpdate2Applied() const
{
    const QStringList columns = getTableInfo("productControl_productSettings").columnNames;
    // Without the table there is nothing to repair; the device software creates it.
    return columns.indexOf("calibratedInUsUnits") > 0 || columns.isEmpty();
}
