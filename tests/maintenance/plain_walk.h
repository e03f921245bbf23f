#pragma once

#include <QSqlQuery>
#include <QString>
#include <QVariant>

/// The renaming passes exactly as they are described, without regard to cost: they read every row
/// and search the whole table for its equals.
class PlainWalk
{
public:
    QString log;

    void renameDuplicateFiles()
    {
        for (int type = 1; type <= 11; ++type) {
            QSqlQuery files;
            files.exec("SELECT * FROM files WHERE typeId=" + QString::number(type));
            while (files.next()) {
                const QString name = files.value(2).toString();
                const QString equals =
                    "SELECT id FROM files WHERE typeId=" + integer(files, 5) +
                    " AND displayName='" + name + "'" + " AND growerId=" + integer(files, 7) +
                    " AND farmId=" + integer(files, 8) + " AND fieldId=" + integer(files, 9);
                QSqlQuery ids;
                if (!ids.exec(equals)) {
                    log += "duplicate file query failed\n";
                    continue;
                }
                ids.next();
                for (int counter = 2; ids.next(); ++counter) {
                    const QString newName = name + "_" + QString::number(counter);
                    if (!rename("files", integer(ids, 0), newName)) {
                        log += "Failed to rename file " + newName + "\n";
                    }
                }
            }
        }
    }

    void renameDuplicateNames()
    {
        QSqlQuery growers;
        if (!growers.exec("SELECT id, displayName FROM growers")) {
            log += "Query for grower displaynames failed\n";
            return;
        }
        while (growers.next()) {
            const QString growerId = integer(growers, 0);
            renameEquals("grower", growers.value(1).toString(), QString());
            QSqlQuery farms;
            if (!farms.exec("SELECT displayName, id FROM farms WHERE growerId=" + growerId)) {
                log += "Query for farms of the grower failed\n";
                continue;
            }
            while (farms.next()) {
                const QString farmId = integer(farms, 1);
                renameEquals("farm", farms.value(0).toString(), " AND growerId=" + growerId);
                QSqlQuery fields;
                if (!fields.exec("SELECT displayName FROM fields WHERE farmId=" + farmId)) {
                    log += "Query for fields of the farm failed\n";
                    continue;
                }
                while (fields.next()) {
                    renameEquals("field", fields.value(0).toString(), " AND farmId=" + farmId);
                }
            }
        }
    }

private:
    static QString integer(const QSqlQuery &query, int column)
    {
        return QString::number(query.value(column).toLongLong());
    }

    static bool rename(const QString &table, const QString &id, const QString &newName)
    {
        return QSqlQuery().exec(
            "UPDATE " + table + " SET displayName='" + newName + "' WHERE id=" + id);
    }

    void renameEquals(const QString &kind, const QString &name, const QString &scope)
    {
        QSqlQuery ids;
        if (!ids.exec("SELECT id FROM " + kind + "s WHERE displayName='" + name + "'" + scope)) {
            log += "Query for duplicate " + kind + " names failed\n";
            return;
        }
        ids.next();
        for (int counter = 2; ids.next(); ++counter) {
            if (!rename(kind + "s", integer(ids, 0), name + "_" + QString::number(counter))) {
                log += "Failed to rename " + kind + ": " + name + "\n";
            }
        }
    }
};
