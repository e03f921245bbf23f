#pragma once

#include <QByteArray>
#include <QByteArrayList>
#include <QHash>
#include <QJsonObject>
#include <QVector>

/// What a step makes of a table while a copy of it is there. Column names are those of the copy.
struct StepOfCopy {
    QByteArrayList columnsDropped;
    QHash<QByteArray, QByteArray> columnsRenamed; ///< the new name, by the old one
    QHash<QByteArray, QByteArray> becomes;        ///< SQL over the old row, by column
};

/// A copy of a table that a step makes and removes again. A step that is cut leaves it behind.
struct KnownCopy {
    QByteArray name;            ///< such as growers_temp
    QByteArray table;           ///< the table that it is a copy of
    QByteArrayList otherNames;  ///< that some versions have for the table
    QByteArrayList inItsPlace;  ///< tables of the versions that do not have this one
    QByteArrayList otherCopies; ///< of the same table
    QVector<StepOfCopy> steps;  ///< that make the copy
};

/// @param schemaVersions the table of versions, as it is installed beside the program
/// @return the copies that its versions can leave behind; none when the format is not known
QVector<KnownCopy> knownCopies(const QJsonObject &schemaVersions);
