#pragma once

#include <QString>
#include <QTemporaryDir>

/// The content of a database at one moment. Making it changes nothing beside the database and waits
/// for no lock: file, journal and write-ahead log are copied to a temporary directory as they are,
/// and SQLite recovers the copy as after a power cut at that moment.
class DatabaseSnapshot
{
public:
    explicit DatabaseSnapshot(const QString &database);

    /// @return why there is no snapshot, empty when there is one
    const QString &error() const { return m_error; }

    /// @return the recovered copy, at rest; it is removed with this object
    QString path() const { return m_directory.filePath("database"); }

    /// @return for people: what a reader of the database itself would find, such as a journal that
    /// is left or another program that is writing; empty for nothing
    const QString &remark() const { return m_remark; }

private:
    bool copyAll(const QString &database);
    void recover();

    QTemporaryDir m_directory;
    QString m_error;
    QString m_remark;
};
