#pragma once

#include "guard/database.h"

#include <QRandomGenerator>
#include <QStringList>

/// A random database, the same content in another layout, and content with exactly one difference.
class RandomContent
{
public:
    explicit RandomContent(quint32 seed);

    /// Fills a new database.
    void make(Database &database);

    /// Fills a new database with the same content in other ways.
    /// @param original the database that make() has filled
    void makeAgain(Database &original, Database &database);

    /// Changes one thing.
    /// @return the differences that a comparison has to report, in the words of the test
    QStringList plantDifference(Database &database);

private:
    enum class Kind { PlainRowid, NamedRowid, CountedRowid, NoRowid, HiddenRowid };

    struct Table {
        QByteArray name;
        Kind kind = Kind::PlainRowid;
        bool hasAddedColumn = false;
        QByteArrayList columns; ///< those that an INSERT can name

        QByteArray quotedName() const;

        /// @return the column that identifies a row, empty if there is none
        QByteArray key() const;
    };

    int below(int bound) { return m_generator.bounded(bound); }
    bool oneIn(int chances) { return below(chances) == 0; }
    template <typename List> typename List::value_type pick(const List &choices)
    {
        return choices[below(choices.size())];
    }

    Value randomValue();
    QByteArray randomText();
    Row randomRow(const Table &table, int number);
    void setUp(Database &database) const;
    void makeTable(Database &database, Table &table);
    void insert(Database &database, const Table &table, const Row &row) const;
    void copyRows(Database &original, Database &database, const Table &table);
    static void copyOwnTable(Database &original, Database &database, const QByteArray &name);

    QStringList plantInValue(Database &database, const Table &table);
    QStringList plantInRows(Database &database, const Table &table);
    QStringList plantInSchema(Database &database, const Table &table);

    QRandomGenerator m_generator;
    quint32 m_seed;
    QByteArray m_settings;
    bool m_isUtf16 = false;
    bool m_mayVacuum = true; ///< a VACUUM gives other rowids to tables whose rowid has no name
    QVector<Table> m_tables;
};
