#pragma once

#include <QByteArray>
#include <QByteArrayList>
#include <QString>
#include <QVector>

#include <sqlite3.h>

/// One value as SQLite stores it.
struct Value {
    int storageClass = SQLITE_NULL;
    qint64 integer = 0;
    double real = 0;
    QByteArray bytes; ///< of a text or a BLOB

    bool operator==(const Value &other) const;
};

using Row = QVector<Value>;

/// A database that a test makes. Any failure ends the test program, since a test's statements are
/// right.
class Database
{
public:
    /// Opens the file; knows the collation "unknown", which the comparison does not.
    explicit Database(const QString &path);
    ~Database();
    Database(const Database &) = delete;
    Database &operator=(const Database &) = delete;

    void execute(const QByteArray &statements);

    /// @return the rows of one statement
    QVector<Row> rows(const QByteArray &statement, const Row &bound = {});

    /// @return the same as rows(); if the statement fails, a last row holds the error's code
    QVector<Row> rowsOrError(const QByteArray &statement);

    /// @return how many rows the last statement changed
    int changes() const { return sqlite3_changes(m_handle); }

private:
    int read(const QByteArray &statement, const Row &bound, QVector<Row> &rows);

    sqlite3 *m_handle = nullptr;
};

Value integerValue(qint64 integer);
Value realValue(double real);
Value textValue(const QByteArray &text);
Value blobValue(const QByteArray &blob);
