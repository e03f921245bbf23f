#include "app/database_migrator.h"
#include "schema/limited_walk.h"
#include "schema/statements.h"

// ---- Version 21: a list of GPS receivers in place of the preferred solution. --------------------

namespace
{
bool mapMachineToNewestReceiver(DatabaseMigrator &migrator, const QString &machineConfigId)
{
    QSqlQuery receiver = forwardOnlyQuery();
    if (!receiver.exec("SELECT last_insert_rowid()")) {
        migrator.logMessage("updateToVersion21 - Failed to retrieve the last inserted rowid");
        return false;
    }
    const qint64 receiverId = receiver.next() ? receiver.value(0).toLongLong() : 0;

    QSqlQuery machine = forwardOnlyQuery();
    if (!machine.exec(
            QString("SELECT machineId FROM MC_MachineConfig WHERE id=%1").arg(machineConfigId))) {
        migrator.logMessage("updateToVersion21 - Failed to select machineId from MC_MachineConfig");
        return false;
    }
    if (!machine.next()) {
        return true;
    }
    const qint64 machineId = machine.value(0).toLongLong();
    if (!executeQuietly(
            QString("INSERT INTO machineToGpsReceiverMapping (machineId,gpsId) VALUES (%1,%2)")
                .arg(QString::number(machineId), QString::number(receiverId)))) {
        migrator.logMessage(
            "updateToVersion21 - Failed to insert entry into machineToGpsReceiverMapping");
        return false;
    }
    return true;
}

bool replaceSolutionsByReceivers(DatabaseMigrator &migrator)
{
    if (!executeQuietly(
            "CREATE TABLE IF NOT EXISTS gpsReceivers (id INTEGER PRIMARY KEY AUTOINCREMENT, "
            "machineConfigId INTEGER, receiverId TEXT, serialPortName TEXT, "
            "filterLevel INTEGER DEFAULT 1, name TEXT, "
            "FOREIGN KEY(machineConfigId) REFERENCES MC_MachineConfig(id) ON DELETE CASCADE)")) {
        migrator.logMessage("updateToVersion21 - Failed to create gpsReceivers table.");
        return false;
    }
    if (!executeQuietly("CREATE TABLE IF NOT EXISTS machineToGpsReceiverMapping(machineId INTEGER, "
                        "gpsId INTEGER, PRIMARY KEY(machineId, gpsId), "
                        "FOREIGN KEY(machineId) REFERENCES MC_Machine(id) ON DELETE CASCADE, "
                        "FOREIGN KEY(gpsId) REFERENCES gpsReceivers(id) ON DELETE CASCADE)")) {
        migrator.logMessage(
            "updateToVersion21 - Failed to create machineToGpsReceiverMapping table.");
        return false;
    }
    LimitedWalk solutions;
    if (!solutions.exec(
            "SELECT mc_id, preferredSolution, filterLevel FROM preferredGpsSolutions")) {
        migrator.logMessage(
            "updateToVersion21 - Failed to select entries from preferredGpsSolutions");
        return false;
    }

    // Kept on purpose: after a failure every later statement still runs but counts as failed, so
    // nothing more is mapped.
    bool succeeded = true;
    while (solutions.next()) {
        const QString machineConfigId = QString::number(solutions.value(0).toLongLong());
        const qint64 preferredSolution = solutions.value(1).toLongLong();
        const QString filterLevel = QString::number(solutions.value(2).toLongLong());
        LimitedWalk devices;
        succeeded &= devices.exec(QString("SELECT portName FROM serialDevices "
                                          "WHERE mc_id=%1 AND deviceHandlerName='BePluginGPS'")
                                      .arg(machineConfigId));
        if (!succeeded) {
            migrator.logMessage("updateToVersion21 - Failed to select portName from serialDevices");
            continue;
        }
        qint64 counter = 0;
        while (devices.next()) {
            ++counter;
            const QString portName = devices.value(0).toString();
            succeeded &= executeQuietly(
                QString("INSERT INTO gpsReceivers "
                        "(machineConfigId,receiverId,serialPortName,filterLevel,name) "
                        "VALUES (%1,'','%2',%3,'')")
                    .arg(machineConfigId, portName, filterLevel));
            if (!succeeded) {
                migrator.logMessage(
                    "updateToVersion21 - Failed to populate gpsReceivers table with new entries");
                continue;
            }
            if (counter == preferredSolution) {
                succeeded = mapMachineToNewestReceiver(migrator, machineConfigId);
            }
        }
        succeeded &= devices.readToTheEnd();
    }
    const bool solutionsRead = solutions.readToTheEnd();
    solutions.finish();

    // Kept on purpose: the table is dropped even after a failure. If it cannot be dropped, the step
    // can still succeed.
    if (!migrator.dropTable("preferredGpsSolutions")) {
        migrator.logMessage("updateToVersion21 - failed to drop preferredGpsSolutions table");
    }
    return succeeded && solutionsRead;
}

bool restorePreferredSolutions(DatabaseMigrator &migrator)
{
    if (!executeQuietly(
            "CREATE TABLE IF NOT EXISTS preferredGpsSolutions (mc_id INTEGER PRIMARY KEY, "
            "preferredSolution INTEGER NOT NULL, filterLevel INTEGER DEFAULT 1, "
            "FOREIGN KEY (mc_id) REFERENCES MC_MachineConfig(id) ON DELETE CASCADE)")) {
        migrator.logMessage("Failed to create preferredGpsSolutions table.");
        return false;
    }
    LimitedWalk receivers;
    if (!receivers.exec(
            "SELECT gpsReceivers.machineConfigId, gpsReceivers.serialPortName, "
            "gpsReceivers.filterLevel FROM gpsReceivers INNER JOIN machineToGpsReceiverMapping "
            "ON gpsReceivers.id = machineToGpsReceiverMapping.gpsId")) {
        migrator.logMessage("Failed to determine preferredGpsSolutions table entries.");
        return false;
    }

    bool succeeded = true;
    while (receivers.next()) {
        const qint64 machineConfigId = receivers.value(0).toLongLong();
        const QString serialPortName = receivers.value(1).toString();
        const qint64 filterLevel = receivers.value(2).toLongLong();
        LimitedWalk devices;
        if (!devices.exec(
                "SELECT portName FROM serialDevices "
                "WHERE mc_id = :machineConfigId AND deviceHandlerName='BePluginGPS'",
                {{":machineConfigId", machineConfigId}})) {
            migrator.logMessage("Failed to determine instance numbers.");
            succeeded = false;
            continue;
        }
        qint64 instanceNumber = 0;
        while (devices.next()) {
            ++instanceNumber;
            if (devices.value(0).toString() != serialPortName) {
                continue;
            }
            // Kept on purpose: of several devices on one port the last one wins.
            QSqlQuery insertion;
            if (!executeWith(
                    insertion,
                    "INSERT OR REPLACE INTO preferredGpsSolutions "
                    "VALUES (:machineConfigId, :instanceNumber, :filterLevel)",
                    {{":machineConfigId", machineConfigId},
                     {":instanceNumber", instanceNumber},
                     {":filterLevel", filterLevel}})) {
                migrator.logMessage("Failed to insert preferredGpsSolutions table entries.");
                succeeded = false;
            }
        }
        succeeded &= devices.readToTheEnd();
    }
    return succeeded && receivers.readToTheEnd();
}
} // namespace

void DatabaseMigrator::updateToVersion21()
{
    const bool succeeded = replaceSolutionsByReceivers(*this);
    closeForwardStep(
        succeeded,
        21,
        "Migration to version 21 was successful.",
        "Migration to version 21 FAILED!");
}

void DatabaseMigrator::revertFromVersion21()
{
    if (!restorePreferredSolutions(*this)) {
        return;
    }
    const bool receiversDropped = allSucceeded({
        dropTable("gpsReceivers"),
        dropTable("machineToGpsReceiverMapping"),
        // Kept on purpose: the forward step never touches this table.
        dropTable("implementToGpsReceiverMapping"),
    });
    if (receiversDropped) {
        m_currentVersion = 20;
    }
}

bool DatabaseMigrator::getUpdate21Applied() const
{
    return tableExists("gpsReceivers") && tableExists("machineToGpsReceiverMapping") &&
           !tableExists("preferredGpsSolutions");
}
