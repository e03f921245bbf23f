#include "app/database_migrator.h"
#include "schema/statements.h"

#include <QSqlError>

#include <utility>

namespace
{
void removeForeignKeyViolations(DatabaseMigrator &migrator)
{
    QSqlQuery violations = forwardOnlyQuery();
    if (!violations.exec("PRAGMA foreign_key_check;")) {
        migrator.logMessage(violations.lastError().databaseText());
        return;
    }
    // Within a table the results rise by row and key. In a damaged table the reading can return again
    // and again to a row that could not be removed, and would never end.
    QString keptTable;
    std::pair<qint64, int> kept;
    while (violations.next()) {
        const QString table = violations.value(0).toString();
        const std::pair<qint64, int> row(
            violations.value(1).toLongLong(), violations.value(3).toInt());
        const bool hasRowId = !violations.value(1).isNull();
        if (hasRowId && table == keptTable && row <= kept) {
            return;
        }
        const QString rowId = QString::number(row.first);
        if (!migrator.executeOrLogDatabaseText(
                QString("DELETE FROM %1 WHERE rowid=%2").arg(table, rowId))) {
            keptTable = table;
            kept = row;
        }
    }
}

void logIntegrityVerdict(DatabaseMigrator &migrator)
{
    QSqlQuery verdict = forwardOnlyQuery();
    if (!verdict.exec("PRAGMA integrity_check;") || !verdict.next()) {
        return;
    }
    if (verdict.value(0).toString() == "ok") {
        migrator.logMessage("Integrity check passed.");
        return;
    }
    migrator.logMessage("Integrity check FAILED! Integrity check results...");
    // Kept on purpose: it asks for further result sets, not for rows. SQLite never has any, so the
    // header is the only line.
    while (verdict.nextResult()) {
        migrator.logMessage(verdict.value(0).toString());
    }
}

void removeOrphanedProductConfigurations(DatabaseMigrator &migrator)
{
    migrator.executeOrLogDatabaseText(
        "DELETE FROM PC_ProductConfig WHERE id NOT IN    "
        "(SELECT ProductConfigId FROM PC_MixToProductConfigBridge INNER JOIN PC_ProductConfig     "
        "ON PC_ProductConfig.id=PC_MixToProductConfigBridge.productConfigId "
        "AND PC_MixToProductConfigBridge.mixId IS NOT NULL    UNION    "
        "SELECT ProductConfigId FROM PC_PlanterVarietyToProductConfigBridge "
        "INNER JOIN PC_ProductConfig    "
        "ON PC_ProductConfig.id=PC_PlanterVarietyToProductConfigBridge.productConfigId "
        "AND PC_PlanterVarietyToProductConfigBridge.varietyId IS NOT NULL    UNION    "
        "SELECT activeProductConfigId FROM PC_ProductConfigToMachineConfigBridge "
        "INNER JOIN PC_ProductConfig    "
        "ON PC_ProductConfig.id=PC_ProductConfigToMachineConfigBridge.activeProductConfigId "
        "AND PC_ProductConfigToMachineConfigBridge.machineConfigId IS NOT NULL    );",
        "Failure 1 while removing extraneous product config data. Error was: ");
    migrator.executeOrLogDatabaseText(
        "DELETE FROM PC_MixToProductConfigBridge WHERE productConfigId IN"
        "(SELECT PC_MixToProductConfigBridge.productConfigId FROM PC_MixToProductConfigBridge "
        "WHERE PC_MixToProductConfigBridge.productConfigId NOT IN     "
        "( SELECT id FROM PC_ProductConfig ));",
        "Failure 2 while removing extraneous product config data. Error was: ");
    migrator.executeOrLogDatabaseText(
        "DELETE FROM PC_PlanterVarietyToProductConfigBridge WHERE productConfigId IN"
        "(SELECT PC_PlanterVarietyToProductConfigBridge.productConfigId "
        "FROM PC_PlanterVarietyToProductConfigBridge "
        "WHERE PC_PlanterVarietyToProductConfigBridge.productConfigId NOT IN    "
        "(SELECT id FROM PC_ProductConfig));",
        "Failure 3 while removing extraneous product config data. Error was: ");
}
} // namespace

void DatabaseMigrator::checkDatabaseIntegrity()
{
    removeForeignKeyViolations(*this);
    logIntegrityVerdict(*this);
    removeOrphanedProductConfigurations(*this);
    reapplyMissingSteps();
}

void DatabaseMigrator::reapplyMissingSteps()
{
    const int storedVersion = m_currentVersion;
    for (auto probe = m_probes.begin(); probe != m_probes.end() && probe.key() <= storedVersion;
         ++probe) {
        if ((this->*probe.value())()) {
            continue;
        }
        logMessage(
            QString("Corruption detected: applying update to db for version %1").arg(probe.key()));
        (this->*m_forwardSteps.value(probe.key()))();
    }
    // A re-applied step has moved the version, but the database is still at the one it recorded.
    m_currentVersion = storedVersion;
}
