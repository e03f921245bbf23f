#pragma once

#include <QByteArray>
#include <QString>
#include <QVector>

class VersionTable;

enum class MendingKind {
    CopyRemoved,  ///< every row of the copy is in the table
    NameGiven,    ///< there was no such table: the copy is the table now
    RowsReturned, ///< the rows that the table lacked are in it again, and the copy is gone
    OnlyReported, ///< the copy is left as it was
};

/// @return the word for it in JSON
QByteArray mendingCode(MendingKind kind);

/// What was done about a copy of a table that a step has left behind.
struct Mending {
    MendingKind kind = MendingKind::OnlyReported;
    QByteArray
        table; ///< as its name is written in the database; as the versions write it without one
    QByteArray copy; ///< as its name is written in the database
    qint64 rowsOfCopy = 0;
    qint64 rowsReturned = 0; ///< that are in the table again; with NameGiven all
    QString reason;          ///< a sentence, of a copy that is only reported
};

struct MendingResult {
    QVector<Mending> mendings; ///< one for each copy, in the order of their names
    QString error;             ///< why nothing was done; empty when all copies were looked at

    /// @return true when the database was changed
    bool changed() const;
};

/// Puts right what steps that were cut have left in a database at rest: copies of tables (t_temp,
/// t_old) beside the table t, or in its place. A copy whose rows are all in t goes. If there is no t
/// the copy gets its name. If t has fewer rows, and none that the copy lacks, the others come back
/// and the copy goes. Every other copy is left alone. No row is lost: a row is the values of all
/// columns that the copy has, with storage class and bytes, as often as it is there. Only what the
/// step that left the copy takes away on purpose (a column, digits of a number) may be missing.
///
/// Only names that a step uses for a copy count, whatever the letter case. Nothing else changes; no
/// trigger fires. All happens in one transaction, which is rolled back on a failure of the disk or
/// the memory. A database that fails SQLite's quick check is left as it is.
///
/// @param database path of a database that nobody has open
MendingResult mendCopies(const QString &database, const VersionTable &versions);
