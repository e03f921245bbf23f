#include "app/database_migrator.h"
#include "schema/statements.h"

// ---- Version 25: original names of growers, farms and fields, and serial port names. ------------

namespace
{
constexpr const char *platformWithOnBoardPorts = "TORVIKMAX";

QString onBoardPort(QString name)
{
    if (name.contains("USB")) {
        return name.replace("USB", "S");
    }
    return name.replace("ttymxc2", "gps1");
}

// Kept on purpose: also changes ports that were never USB adapters.
QString usbPort(QString name)
{
    if (name.contains("ttyS")) {
        return name.replace("ttyS", "ttyUSB");
    }
    return name.replace("gps1", "ttymxc2");
}

using PortName = QString (*)(QString name);

bool updatePortNames(
    DatabaseMigrator &migrator, const QString &update, const QMap<qint64, QString> &names,
    PortName newName, const QString &failure)
{
    bool succeeded = true;
    // Kept on purpose: every row is written, even if its name does not change.
    for (auto row = names.begin(); row != names.end(); ++row) {
        succeeded &= migrator.executeOrLogDatabaseText(
            update.arg(newName(row.value()), QString::number(row.key())), failure);
    }
    return succeeded;
}

bool renameSerialDevicePorts(DatabaseMigrator &migrator, PortName newName, const QString &failure)
{
    QMap<qint64, QString> portNames;
    QSqlQuery devices = forwardOnlyQuery();
    if (!devices.exec("SELECT * FROM serialDevices")) {
        return false;
    }
    while (devices.next()) {
        portNames.insert(devices.value(0).toLongLong(), devices.value(2).toString());
    }
    if (!readToTheEnd(devices)) {
        return false;
    }
    devices.finish();
    return updatePortNames(
        migrator,
        "UPDATE serialDevices SET portName='%1' WHERE id=%2",
        portNames,
        newName,
        failure);
}

bool renameReceiverPorts(DatabaseMigrator &migrator, PortName newName, const QString &failure)
{
    QMap<qint64, QString> receiverIds;
    QMap<qint64, QString> serialPortNames;
    QSqlQuery receivers = forwardOnlyQuery();
    if (!receivers.exec("SELECT * FROM gpsReceivers")) {
        return false;
    }
    while (receivers.next()) {
        const qint64 id = receivers.value(0).toLongLong();
        receiverIds.insert(id, receivers.value(2).toString());
        serialPortNames.insert(id, receivers.value(3).toString());
    }
    if (!readToTheEnd(receivers)) {
        return false;
    }
    receivers.finish();
    return allSucceeded({
        updatePortNames(
            migrator,
            "UPDATE gpsReceivers SET receiverId='%1' WHERE id=%2",
            receiverIds,
            newName,
            failure),
        updatePortNames(
            migrator,
            "UPDATE gpsReceivers SET serialPortName='%1' WHERE id=%2",
            serialPortNames,
            newName,
            failure),
    });
}
} // namespace

void DatabaseMigrator::updateToVersion25()
{
    bool namesCopied = true;
    for (const QString table : {"growers", "farms", "fields"}) {
        // Kept on purpose: a column that is already there is not filled, but isoName is dropped below.
        if (!getTableInfo(table).columnNames.contains("originalName")) {
            namesCopied &= addColumnIfNotExists(table, "originalName", "TEXT");
            namesCopied &= setColumnValue(table, "originalName", "isoName");
        }
    }
    const bool namesMoved = allSucceeded({
        namesCopied,
        dropColumnSaveParameters("growers", "isoName"),
        dropColumnSaveParameters("farms", "isoName"),
        dropColumnSaveParameters("fields", "isoName"),
    });
    const bool onBoard = m_platform == platformWithOnBoardPorts;
    const QString failure = "Error while updating to version 25. Error was: ";
    // Kept on purpose: devices are renamed even after a failure, receivers are not.
    const bool devicesRenamed = !onBoard || renameSerialDevicePorts(*this, onBoardPort, failure);
    const bool succeeded = namesMoved && devicesRenamed &&
                           (!onBoard || renameReceiverPorts(*this, onBoardPort, failure));
    closeForwardStep(
        succeeded,
        25,
        "Migration to version 25 was successful.",
        "Migration to version 25 FAILED!");
}

void DatabaseMigrator::revertFromVersion25()
{
    const bool namesMoved = allSucceeded({
        addColumnIfNotExists("growers", "isoName", "TEXT"),
        addColumnIfNotExists("farms", "isoName", "TEXT"),
        addColumnIfNotExists("fields", "isoName", "TEXT"),
        setColumnValue("growers", "isoName", "originalName"),
        setColumnValue("farms", "isoName", "originalName"),
        setColumnValue("fields", "isoName", "originalName"),
        dropColumnSaveParameters("growers", "originalName"),
        dropColumnSaveParameters("farms", "originalName"),
        dropColumnSaveParameters("fields", "originalName"),
        // Kept on purpose: the forward step does nothing like this.
        addColumnIfNotExists("fields", "partfieldCode_temp", "TEXT"),
        setColumnValue("fields", "partfieldCode_temp", "partfieldCode"),
        dropColumnSaveParameters("fields", "partfieldCode"),
        addColumnIfNotExists("fields", "partfieldCode", "TEXT"),
        setColumnValue("fields", "partfieldCode", "partfieldCode_temp"),
        dropColumnSaveParameters("fields", "partfieldCode_temp"),
    });
    const bool onBoard = m_platform == platformWithOnBoardPorts;
    const QString failure = "Error while reverting to version 24. Error was: ";
    const bool devicesRenamed = !onBoard || renameSerialDevicePorts(*this, usbPort, failure);
    const bool succeeded =
        namesMoved && devicesRenamed && (!onBoard || renameReceiverPorts(*this, usbPort, failure));
    if (succeeded) {
        m_currentVersion = 24;
    }
}

bool DatabaseMigrator::getUpdate25Applied() const
{
    for (const QString table : {"growers", "farms", "fields"}) {
        const TableInfo info = getTableInfo(table);
        if (info.createText.isEmpty()) {
            continue;
        }
        if (info.columnNames.contains("isoName") || !info.columnNames.contains("originalName")) {
            return false;
        }
    }
    return true;
}
