#pragma once

#include <QByteArray>
#include <QByteArrayList>
#include <QString>
#include <QStringList>
#include <QVector>

/// One row of sqlite_schema. The place of its b-tree in the file does not count. All texts are
/// UTF-8; a text that is not valid in the database's encoding keeps its bytes.
struct SchemaObject {
    QByteArray type;  ///< "table", "index", "view" or "trigger"
    QByteArray name;  ///< as written in the definition
    QByteArray table; ///< the table that it belongs to; a table's own name
    QByteArray sql;   ///< the definition, null for an index that a constraint creates
};

/// What differs in content between two databases. Layout is not content: where a row is in the
/// file, in which order the schema lists its objects, counters, unused pages.
struct DatabaseDifferences {
    /// Why a file could not be read (the disk, the memory or the caller failed); empty when both
    /// could be read. If it is set, nothing else is known.
    QString readError;

    /// A schema cannot be understood, and some page differs. If it is true, nothing else is known.
    bool schemaDamaged = false;

    /// Those that differ of "page_size", "reserved_bytes", "journal_mode", "encoding",
    /// "auto_vacuum", "user_version", "application_id" and "default_cache_size".
    QStringList settings;

    /// Objects that only one of the two has. A changed definition is in both lists.
    QVector<SchemaObject> objectsOnlyBefore;
    QVector<SchemaObject> objectsOnlyAfter;

    /// Tables of both databases whose rows differ, or whose rows cannot be read and whose pages
    /// differ. If the definitions differ, the values are compared column by column, in the order of
    /// each table's columns.
    QByteArrayList tables;

    /// Indexes of both databases whose entries differ although their tables do not: one index is
    /// damaged.
    QByteArrayList indexes;

    /// @return true when nothing differs
    bool isEmpty() const;
};

/// Compares two databases at rest: no process has them open, and no journal or write-ahead log of
/// theirs is left. It only reads; no trigger, view or expression of the schema is evaluated.
///
/// Rows are paired by rowid (in a table without one, by place in key order) and compared by storage
/// class and bytes. A table or index is equal when all its pages are equal in both files. Whatever
/// could be content and cannot be read counts as different.
///
/// Memory: two bits and an owner for every page, some pages of each file, and both schemas. SQLite
/// reads rows again that have the same key but different bytes; it holds one row of each file.
///
/// @param before path of the database before
/// @param after path of the database after
DatabaseDifferences compareDatabases(const QString &before, const QString &after);
