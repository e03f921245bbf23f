#pragma once

#include "guard/verdict/judged_database.h"
#include "guard/verdict/version_table.h"

#include <QHash>
#include <QSet>

/// A copy of the database of before with the repairs that a run makes before it walks: it removes
/// rows that break foreign keys, then those that the table of versions names for every run, each
/// with the rows that SQLite removes with them. Triggers do not run in it.
class RepairedCopy
{
public:
    /// @param before the database to copy when there is something to repair
    /// @param directory where the copy is made; it is removed with this object
    RepairedCopy(
        const JudgedDatabase &before, const QString &path, const QString &directory,
        const VersionTable::EveryRun &everyRun, WorkBudget &budget);
    ~RepairedCopy();
    Q_DISABLE_COPY(RepairedCopy)

    /// @return whether there is a copy; there is none when there was nothing to repair
    bool isMade() const { return m_isMade; }

    /// @return whether there was something to repair but the copy could not be made
    bool hasFailed() const { return m_hasFailed; }

    const QString &path() const { return m_path; }

    /// The rows of a table with row ids that the repairs have touched.
    struct TouchedTable {
        QSet<qint64> orphans; ///< row ids of the rows that the second repair removed
        bool hasLostRows = false;
    };

    /// By folded name. A table without row ids is not among them.
    const QHash<QByteArray, TouchedTable> &touched() const { return m_touched; }

private:
    void removeViolations(const QByteArray &check);
    void dropIndexesThatCompute();
    static void noteChange(
        void *copy, int operation, const char *, const char *table, sqlite3_int64 rowid);

    SqliteConnection m_connection;
    QString m_path;
    bool m_isMade = false;
    bool m_hasFailed = false;
    bool m_removesOrphans = false;
    QHash<QByteArray, TouchedTable> m_touched;
};
