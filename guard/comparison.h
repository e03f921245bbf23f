#pragma once

#include <QByteArray>
#include <QByteArrayList>
#include <QString>
#include <QStringList>
#include <QVector>

/// One row of sqlite_schema. Where its b-tree is in the file does not count. All texts are UTF-8;
/// in a database that holds something else they are the bytes that it holds.
struct SchemaObject {
    QByteArray type;  ///< "table", "index", "view" or "trigger"
    QByteArray name;  ///< as written in the definition
    QByteArray table; ///< the table that it belongs to; a table's own name
    QByteArray sql;   ///< the definition, null for an index that a constraint brings along
};

/// What differs in content between two databases. Layout is not content: where a row is in the
/// file, in which order the schema lists its objects, counters, unused pages.
struct DatabaseDifferences {
    /// Why a file could not be read, empty when both could: a failure of the disk, of the memory or
    /// of the caller. Then nothing else is known.
    QString readError;

    /// A schema cannot be understood, and some page differs. Then nothing else is known.
    bool schemaDamaged = false;

    /// Of "page_size", "reserved_bytes", "journal_mode", "encoding", "auto_vacuum", "user_version",
    /// "application_id" and "default_cache_size" those that differ.
    QStringList settings;

    /// Objects that only one of the two has. A changed definition is in both lists.
    QVector<SchemaObject> objectsOnlyBefore;
    QVector<SchemaObject> objectsOnlyAfter;

    /// Tables of both whose rows differ, or cannot be read and own a page that differs. The values
    /// of a table with another definition are compared column by column, in the order of both.
    QByteArrayList tables;

    /// Indexes of both, on tables that do not differ, whose entries do: one of them is damaged.
    QByteArrayList indexes;

    /// @return true when nothing differs
    bool isEmpty() const;
};

/// Compares two databases at rest: nobody has them open, and no journal or write-ahead log that
/// belongs to them is left. Reads only; no trigger, view or expression of the schema is evaluated.
///
/// Every row is compared by rowid (or, in a table without one, by place in key order), storage
/// class and bytes. Tables and indexes all of whose pages are equal in both files are equal.
/// Everything that could be content and cannot be read counts as different.
///
/// Memory: a bit and an owner for every page, some pages of each file, and both schemas. Rows that
/// have the same key and other bytes are read again by SQLite, which holds one row of each file.
///
/// @param before path of the database before
/// @param after path of the database after
DatabaseDifferences compareDatabases(const QString &before, const QString &after);
