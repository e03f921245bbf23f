#include "app/database_migrator.h"
#include "maintenance/suspect_rows.h"
#include "schema/statements.h"

#include <optional>

namespace
{
/// The statements and log lines for one name.
struct RenameTexts {
    QString select; ///< finds the ids of all records with the name in its scope
    QString selectFailure;
    QString update; ///< with %1 for the new name and %2 for the id
    std::function<QString(const QString &newName)> updateFailure;
};

void renameAllButFirst(
    DatabaseMigrator &migrator, SuspectRows &names, const QVector<qint64> &scope,
    const QString &name, const RenameTexts &texts)
{
    if (!names.isSuspect(scope, name)) {
        return;
    }
    QSqlQuery equals = forwardOnlyQuery();
    if (!equals.exec(texts.select + names.among(scope, name))) {
        migrator.logMessage(texts.selectFailure);
        return;
    }
    std::optional<qint64> lastId;
    int counter = 0;
    while (equals.next() && counter < names.limit()) {
        const qint64 id = equals.value(0).toLongLong();
        if (lastId && id <= *lastId && names.endBecauseOfDamage()) {
            return;
        }
        lastId = id;
        if (++counter == 1) {
            continue;
        }
        const QString newName = name + "_" + QString::number(counter);
        if (!executeQuietly(texts.update.arg(newName, QString::number(id)))) {
            migrator.logMessage(texts.updateFailure(newName));
        }
        names.rowUpdated(id, scope, name, newName);
    }
}

void renameEqualFiles(DatabaseMigrator &migrator, SuspectRows &files, const QSqlQuery &file)
{
    const QString name = file.value(2).toString();
    const qint64 typeId = file.value(5).toLongLong();
    const qint64 growerId = file.value(7).toLongLong();
    const qint64 farmId = file.value(8).toLongLong();
    const qint64 fieldId = file.value(9).toLongLong();
    RenameTexts texts;
    texts.select = QString("SELECT id FROM files WHERE typeId=%1 AND displayName='%2' "
                           "AND growerId=%3 AND farmId=%4 AND fieldId=%5")
                       .arg(
                           QString::number(typeId),
                           name,
                           QString::number(growerId),
                           QString::number(farmId),
                           QString::number(fieldId));
    texts.selectFailure = "duplicate file query failed";
    texts.update = "UPDATE files SET displayName='%1' WHERE id=%2";
    // Kept on purpose: the new name here, the old one for the others.
    texts.updateFailure = [](const QString &newName) {
        return QString("Failed to rename file %1").arg(newName);
    };
    renameAllButFirst(migrator, files, {typeId, growerId, farmId, fieldId}, name, texts);
}

void renameEqualGrowers(DatabaseMigrator &migrator, SuspectRows &growers, const QString &name)
{
    RenameTexts texts;
    texts.select = QString("SELECT id FROM growers WHERE displayName='%1'").arg(name);
    texts.selectFailure = "Query for duplicate grower names failed";
    texts.update = "UPDATE growers SET displayName='%1' WHERE id=%2";
    texts.updateFailure = [&](const QString &) {
        return QString("Failed to rename grower: %1").arg(name);
    };
    renameAllButFirst(migrator, growers, {}, name, texts);
}

void renameEqualFarms(
    DatabaseMigrator &migrator, SuspectRows &farms, qint64 growerId, const QString &name)
{
    RenameTexts texts;
    texts.select = QString("SELECT id FROM farms WHERE displayName='%1' AND growerId=%2")
                       .arg(name, QString::number(growerId));
    texts.selectFailure = "Query for duplicate farm names failed";
    texts.update = "UPDATE farms SET displayName='%1' WHERE id=%2";
    texts.updateFailure = [&](const QString &) {
        return QString("Failed to rename farm: %1").arg(name);
    };
    renameAllButFirst(migrator, farms, {growerId}, name, texts);
}

void renameEqualFields(
    DatabaseMigrator &migrator, SuspectRows &fields, qint64 farmId, const QString &name)
{
    RenameTexts texts;
    texts.select = QString("SELECT id FROM fields WHERE displayName='%1' AND farmId=%2")
                       .arg(name, QString::number(farmId));
    texts.selectFailure = "Query for duplicate field names failed";
    texts.update = "UPDATE fields SET displayName='%1' WHERE id=%2";
    texts.updateFailure = [&](const QString &) {
        return QString("Failed to rename field: %1").arg(name);
    };
    renameAllButFirst(migrator, fields, {farmId}, name, texts);
}
} // namespace

void DatabaseMigrator::renameDuplicateFiles()
{
    SuspectRows files(
        {"files", {"typeId", "growerId", "farmId", "fieldId"}, "typeId BETWEEN 1 AND 11"});
    // The table is read by position, whatever column is there.
    const QStringList columns = getTableInfo("files").columnNames;
    const bool columnsInPlace = columns.value(2) == "displayName" && columns.value(5) == "typeId" &&
                                columns.value(7) == "growerId" && columns.value(8) == "farmId" &&
                                columns.value(9) == "fieldId";
    if (columnsInPlace && !files.prepare()) {
        return;
    }
    for (int type = 1; type <= 11; ++type) {
        files.forEachRow(
            QString("SELECT * FROM files WHERE typeId=%1").arg(type),
            type,
            [&](const QSqlQuery &file) { renameEqualFiles(*this, files, file); });
    }
}

void DatabaseMigrator::renameDuplicateNames()
{
    SuspectRows fields({"fields", {"farmId"}});
    SuspectRows farms({"farms", {"growerId"}}, &fields);
    SuspectRows growers({"growers", {}}, &farms);
    if (!growers.prepare()) {
        return;
    }
    const auto visitFarm = [&](qint64 growerId, const QString &name, qint64 farmId) {
        renameEqualFarms(*this, farms, growerId, name);
        if (!fields.forEachRow(
                QString("SELECT displayName FROM fields WHERE farmId=%1").arg(farmId),
                farmId,
                [&](const QSqlQuery &field) {
                    renameEqualFields(*this, fields, farmId, field.value(0).toString());
                })) {
            logMessage("Query for fields of the farm failed");
        }
    };
    const auto visitGrower = [&](qint64 growerId, const QString &name) {
        renameEqualGrowers(*this, growers, name);
        if (!farms.forEachRow(
                QString("SELECT displayName, id FROM farms WHERE growerId=%1").arg(growerId),
                growerId,
                [&](const QSqlQuery &farm) {
                    visitFarm(growerId, farm.value(0).toString(), farm.value(1).toLongLong());
                })) {
            logMessage("Query for farms of the grower failed");
        }
    };
    if (!growers.forEachRow("SELECT id, displayName FROM growers", 0, [&](const QSqlQuery &grower) {
            visitGrower(grower.value(0).toLongLong(), grower.value(1).toString());
        })) {
        logMessage("Query for grower displaynames failed");
    }
}
