#pragma once

#include <QString>
#include <QTemporaryDir>

/// What a database holds at one moment, for a look at it that changes nothing beside it and waits for
/// nobody. Its file, journal and write-ahead log are copied to a temporary directory as they are, and
/// SQLite recovers the copy as it would recover them after a power cut at that moment.
class DatabaseSnapshot
{
public:
    explicit DatabaseSnapshot(const QString &database);

    /// @return why there is none, empty when there is one
    const QString &error() const { return m_error; }

    /// @return the recovered copy, at rest; it goes with this object
    QString path() const { return m_directory.filePath("database"); }

    /// @return what a reader of the database itself would meet, for people: a journal that is left,
    /// another program that writes; empty for nothing
    const QString &remark() const { return m_remark; }

private:
    bool copyAll(const QString &database);
    void recover();

    QTemporaryDir m_directory;
    QString m_error;
    QString m_remark;
};
