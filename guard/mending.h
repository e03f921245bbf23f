#pragma once

#include <QByteArray>
#include <QString>
#include <QVector>

class VersionTable;

enum class MendingKind {
    CopyRemoved,  ///< every row of the copy is in the table
    NameGiven,    ///< there was no such table: the copy is the table now
    RowsReturned, ///< the rows that the table lacked are in it again, and the copy is gone
    OnlyReported, ///< the copy was left as it was
};

/// @return the word for it in JSON
QByteArray mendingCode(MendingKind kind);

/// What was done about a copy of a table that a step has left behind.
struct Mending {
    MendingKind kind = MendingKind::OnlyReported;
    QByteArray table; ///< its name in the database; if it is missing, in the versions
    QByteArray copy;  ///< its name as the database writes it
    qint64 rowsOfCopy = 0;
    qint64 rowsReturned = 0; ///< rows that were put back into the table; with NameGiven all
    QString reason;          ///< why a copy is only reported, as a sentence
};

struct MendingResult {
    QVector<Mending> mendings; ///< one for each copy, in the order of their names
    QString error;             ///< why nothing was done; empty when all copies were handled

    /// @return true when the database was changed
    bool changed() const;
};

/// Repairs what cut steps have left in a database at rest: copies (t_temp, t_old) beside the table
/// t, or in its place. If all rows of a copy are in t, the copy is removed. If there is no t, the
/// copy gets its name. If t has fewer rows than the copy, and none that the copy lacks, the missing
/// rows are put back and the copy is removed. Every other copy is left alone. No row is lost: rows
/// are compared by the values of all columns that the copy has, with storage class and bytes, and
/// equal rows are counted. Only what the step takes away on purpose (a column, digits of a number)
/// may be missing.
///
/// Only names that a step uses for a copy count, in any letter case. Nothing else changes; no
/// trigger fires. Everything happens in one transaction, which is rolled back when the disk or the
/// memory fails. A database that fails SQLite's quick check is left as it is.
///
/// @param database path of a database that no process has open
MendingResult mendCopies(const QString &database, const VersionTable &versions);
