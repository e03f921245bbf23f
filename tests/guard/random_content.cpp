#include "guard/random_content.h"

#include <algorithm>
#include <limits>

namespace
{
QByteArray quoted(QByteArray name)
{
    return '"' + name.replace("\"", "\"\"") + '"';
}

QByteArray quotedList(const QByteArrayList &names)
{
    QByteArrayList list;
    for (const QByteArray &name : names) {
        list << quoted(name);
    }
    return list.join(", ");
}

QByteArray placeholders(int count)
{
    return QByteArrayList(QVector<QByteArray>(count, "?").toList()).join(", ");
}
/// @return true for an ASCII letter: SQLite knows no letter case of others
bool isLetter(char byte)
{
    return (byte | 0x20) >= 'a' && (byte | 0x20) <= 'z';
}

int countStatistics(Database &database)
{
    const QByteArray statistics = "sqlite_stat1";
    const QByteArray exists = "SELECT 1 FROM sqlite_schema WHERE name = ?";
    return database.rows(exists, {textValue(statistics)}).isEmpty()
               ? 0
               : database.rows("SELECT 1 FROM " + statistics).size();
}
} // namespace

QByteArray RandomContent::Table::quotedName() const
{
    return quoted(name);
}

QByteArray RandomContent::Table::key() const
{
    if (kind == Kind::HiddenRowid) {
        return {};
    }
    return kind == Kind::PlainRowid ? "rowid" : "k";
}

RandomContent::RandomContent(quint32 seed) : m_generator(seed), m_seed(seed)
{
    const QByteArray encoding = pick(QByteArrayList{"UTF-8", "UTF-8", "UTF-16le", "UTF-16be"});
    m_isUtf16 = encoding != "UTF-8";
    m_settings = "PRAGMA journal_mode=MEMORY; PRAGMA encoding='" + encoding +
                 "'; PRAGMA page_size=" + pick(QByteArrayList{"512", "1024", "4096", "65536"}) +
                 "; PRAGMA auto_vacuum=" + QByteArray::number(below(3)) + ";";
}

void RandomContent::setUp(Database &database) const
{
    database.execute(m_settings + "BEGIN");
}

void RandomContent::make(Database &database)
{
    setUp(database);
    const QByteArrayList names = {"fields", "a\"b", "x'y", "Fläche", "select", "a b", "new\nline"};
    const int tables = 1 + below(names.size());
    for (int number = 0; number < tables; ++number) {
        Table table;
        table.name = names[number];
        table.kind = static_cast<Kind>(below(5));
        makeTable(database, table);
        m_tables << table;
    }
    database.execute("PRAGMA user_version=" + QByteArray::number(below(3)));
    if (oneIn(3)) {
        database.execute("ANALYZE");
    }
    database.execute("COMMIT");
}

void RandomContent::makeTable(Database &database, Table &table)
{
    const QByteArray columns = "a, n TEXT COLLATE NOCASE, r REAL, g AS (typeof(a))";
    const auto create = [&](const QByteArray &key, const QByteArray &options) {
        database.execute(
            "CREATE TABLE " + table.quotedName() + " (" + key + columns + ")" + options);
    };
    switch (table.kind) {
    case Kind::PlainRowid:
        create("", "");
        break;
    case Kind::NamedRowid:
        create("k INTEGER PRIMARY KEY, ", "");
        break;
    case Kind::CountedRowid:
        create("k INTEGER PRIMARY KEY AUTOINCREMENT, ", "");
        break;
    case Kind::NoRowid:
        create("k TEXT COLLATE NOCASE PRIMARY KEY, ", " WITHOUT ROWID");
        break;
    case Kind::HiddenRowid:
        create("rowid, oid, _rowid_, ", "");
        break;
    }
    const auto readColumns = [&] {
        table.columns.clear();
        const QVector<Row> rows = database.rows(
            "SELECT name FROM pragma_table_xinfo(?) WHERE hidden = 0", {textValue(table.name)});
        for (const Row &row : rows) {
            table.columns << row[0].bytes;
        }
    };
    readColumns();
    const int count = pick(QVector<int>{0, 1, 5, 40, 150});
    const int addColumnAt = oneIn(2) ? below(count + 1) : -1;
    for (int number = 0; number < count; ++number) {
        if (number == addColumnAt) {
            database.execute("ALTER TABLE " + table.quotedName() + " ADD COLUMN d TEXT DEFAULT 5");
            table.hasAddedColumn = true;
            readColumns();
        }
        insert(database, table, randomRow(table, number));
    }
    if (table.kind == Kind::PlainRowid && oneIn(2)) {
        database.execute("DELETE FROM " + table.quotedName() + " WHERE rowid % 3 = 1");
        m_mayVacuum = false;
    }
    const QByteArray on =
        "CREATE INDEX " + quoted("of " + table.name) + " ON " + table.quotedName();
    const QByteArrayList indexes = {"", " (n DESC, a)", " (r, typeof(a))", " (a) WHERE a > 1"};
    const QByteArray index = pick(indexes);
    if (!index.isEmpty()) {
        database.execute(on + index);
    }
}

QByteArray RandomContent::randomText()
{
    const QByteArrayList texts = {"", "a", "A", "Große Wiese", "日本", "O'Brien", "1", "1.0"};
    const QByteArrayList oddTexts = {
        QByteArray("a\0b", 3), "\xff", "\xed\xa0\x80", QByteArray("\0", 1)};
    return !m_isUtf16 && oneIn(4) ? pick(oddTexts) : pick(texts);
}

Value RandomContent::randomValue()
{
    const QVector<qint64> integers = {
        0, 1, -1, 127, 128, 40000, 1 << 23, qint64(1) << 40, std::numeric_limits<qint64>::min()};
    const QVector<double> reals = {
        0.0, -0.0, 1.0, 1.5, 1e300, std::numeric_limits<double>::infinity()};
    switch (below(7)) {
    case 0:
        return {};
    case 1:
        return integerValue(pick(integers));
    case 2:
        return integerValue(below(1000));
    case 3:
        return realValue(pick(reals));
    case 4:
        return textValue(randomText());
    case 5:
        return blobValue(randomText());
    default:
        // More than a page, now and then.
        return blobValue(QByteArray(below(oneIn(4) ? 9000 : 90), static_cast<char>(below(256))));
    }
}

Row RandomContent::randomRow(const Table &table, int number)
{
    Row row;
    for (const QByteArray &column : table.columns) {
        if (column != "k") {
            row << randomValue();
        } else if (table.kind == Kind::NoRowid) {
            row << textValue("Key " + QByteArray::number(number * 7919 % 1000));
        } else {
            row << integerValue(3 * number + below(3));
        }
    }
    return row;
}

void RandomContent::insert(Database &database, const Table &table, const Row &row) const
{
    database.rows(
        "INSERT INTO " + table.quotedName() + " (" + quotedList(table.columns) + ") VALUES (" +
            placeholders(row.size()) + ")",
        row);
}

void RandomContent::makeAgain(Database &original, Database &database)
{
    setUp(database);
    database.execute("CREATE TABLE junk (a); INSERT INTO junk VALUES (zeroblob(20000))");
    QByteArrayList tableTexts;
    QByteArrayList indexTexts;
    const QVector<Row> objects =
        original.rows("SELECT type, sql FROM sqlite_schema WHERE sql NOT NULL "
                      "AND name NOT LIKE 'sqlite!_%' ESCAPE '!'");
    for (const Row &object : objects) {
        (object[0].bytes == "table" ? tableTexts : indexTexts) << object[1].bytes;
    }
    std::shuffle(tableTexts.begin(), tableTexts.end(), m_generator);
    std::shuffle(indexTexts.begin(), indexTexts.end(), m_generator);
    for (const QByteArray &text : tableTexts) {
        database.execute(text);
    }
    const bool indexesFirst = oneIn(2);
    if (indexesFirst) {
        database.execute(indexTexts.join(';'));
    }
    for (const Table &table : qAsConst(m_tables)) {
        copyRows(original, database, table);
    }
    database.execute("DROP TABLE junk");
    if (!indexesFirst) {
        database.execute(indexTexts.join(';'));
    }
    for (const QByteArray &name : {QByteArray("sqlite_sequence"), QByteArray("sqlite_stat1")}) {
        copyOwnTable(original, database, name);
    }
    database.execute(
        "PRAGMA user_version=" +
        QByteArray::number(original.rows("PRAGMA user_version")[0][0].integer));
    database.execute("COMMIT");
    if (m_mayVacuum && oneIn(3)) {
        database.execute("VACUUM");
    }
}

void RandomContent::copyRows(Database &original, Database &database, const Table &table)
{
    Table target = table;
    if (table.kind == Kind::PlainRowid) {
        target.columns.prepend("rowid");
    }
    QVector<Row> rows =
        original.rows("SELECT " + quotedList(target.columns) + " FROM " + table.quotedName());
    if (table.kind == Kind::HiddenRowid) {
        std::for_each(
            rows.begin(), rows.end(), [&](const Row &row) { insert(database, target, row); });
        return;
    }
    std::shuffle(rows.begin(), rows.end(), m_generator);
    for (const Row &row : qAsConst(rows)) {
        insert(database, target, row);
    }
    // Some rows go and come back.
    rows.resize(below(rows.size() + 1));
    for (const Row &row : qAsConst(rows)) {
        database.rows(
            "DELETE FROM " + table.quotedName() + " WHERE " + table.key() + " = ?", {row[0]});
    }
    for (const Row &row : qAsConst(rows)) {
        insert(database, target, row);
    }
}

/// Copies the rows of a table that SQLite makes and fills by itself.
void RandomContent::copyOwnTable(Database &original, Database &database, const QByteArray &name)
{
    if (original.rows("SELECT 1 FROM sqlite_schema WHERE name = ?", {textValue(name)}).isEmpty()) {
        return;
    }
    if (name == "sqlite_stat1") {
        database.execute("ANALYZE");
    }
    database.execute("DELETE FROM " + name);
    for (const Row &row : original.rows("SELECT rowid, * FROM " + name)) {
        database.rows(
            "INSERT INTO " + name + " (rowid, " +
                (name == "sqlite_stat1" ? "tbl, idx, stat" : "name, seq") + ") VALUES (" +
                placeholders(row.size()) + ")",
            row);
    }
}

QStringList RandomContent::plantDifference(Database &database)
{
    for (;;) {
        const Table table = pick(m_tables);
        QStringList expected;
        switch (below(3)) {
        case 0:
            expected = plantInValue(database, table);
            break;
        case 1:
            expected = plantInRows(database, table);
            break;
        default:
            expected = plantInSchema(database, table);
        }
        if (!expected.isEmpty()) {
            return expected;
        }
    }
}

QStringList RandomContent::plantInValue(Database &database, const Table &table)
{
    const QByteArray column = pick(QByteArrayList{"a", "n"});
    if (table.key().isEmpty()) {
        return {};
    }
    const QVector<Row> rows =
        database.rows("SELECT " + table.key() + ", " + column + " FROM " + table.quotedName());
    if (rows.isEmpty()) {
        return {};
    }
    const Row row = pick(rows);
    Value value = row[1];
    char *byte = value.bytes.isEmpty() ? nullptr : value.bytes.data() + below(value.bytes.size());
    if (column == "n" && value.storageClass == SQLITE_TEXT && byte != nullptr && isLetter(*byte)) {
        *byte = static_cast<char>(*byte ^ 0x20);
    } else if (column == "n") {
        return {};
    } else if (value.storageClass == SQLITE_INTEGER && qAbs(value.integer + 1) < qint64(1) << 50) {
        value = realValue(static_cast<double>(value.integer));
    } else if (byte != nullptr && (value.storageClass == SQLITE_BLOB || !m_isUtf16)) {
        *byte = static_cast<char>(*byte ^ 1 << below(8));
    } else if (value.storageClass == SQLITE_NULL) {
        value = textValue("");
    } else {
        return {};
    }
    database.rows(
        "UPDATE " + table.quotedName() + " SET " + column + " = ? WHERE " + table.key() + " = ?",
        {value, row[0]});
    return {"rows: " + table.name};
}

QStringList RandomContent::plantInRows(Database &database, const Table &table)
{
    const QByteArray name = table.quotedName();
    if (database.rows("SELECT 1 FROM " + name + " LIMIT 1").isEmpty()) {
        return {}; // the first row of all would start a counter
    }
    // The new row is below every other, so no counter moves.
    const QByteArray free = table.kind == Kind::NoRowid ? "'free'" : "-7";
    const QByteArray chosen = " WHERE " + table.key() + " = (SELECT " + table.key() + " FROM " +
                              name + " ORDER BY random() LIMIT 1)";
    switch (table.key().isEmpty() ? 0 : below(3)) {
    case 0:
        database.execute(
            table.key().isEmpty()
                ? "INSERT INTO " + name + " (a) VALUES (NULL)"
                : "INSERT INTO " + name + " (" + table.key() + ") VALUES (" + free + ")");
        break;
    case 1:
        database.execute("DELETE FROM " + name + chosen);
        break;
    default:
        database.execute("UPDATE " + name + " SET " + table.key() + " = " + free + chosen);
    }
    return database.changes() == 1 ? QStringList("rows: " + table.name) : QStringList();
}

QStringList RandomContent::plantInSchema(Database &database, const Table &table)
{
    const QByteArray index = quoted("of " + table.name);
    const bool hasIndex =
        !database
             .rows("SELECT 1 FROM sqlite_schema WHERE name = ?", {textValue("of " + table.name)})
             .isEmpty();
    const bool isCounted = table.kind == Kind::CountedRowid;
    switch (below(5)) {
    case 0:
        database.execute("CREATE INDEX planted ON " + table.quotedName() + " (n)");
        return {"after: index planted"};
    case 1:
        if (hasIndex) {
            const int statistics = countStatistics(database);
            database.execute("DROP INDEX " + index);
            const QStringList told("before: index of " + table.name);
            const bool tookStatistics = countStatistics(database) != statistics;
            return tookStatistics ? told + QStringList("rows: sqlite_stat1") : told;
        }
        return {};
    case 2:
        if (table.hasAddedColumn) {
            database.execute("PRAGMA writable_schema=ON");
            database.rows(
                "UPDATE sqlite_schema SET sql = replace(sql, 'DEFAULT 5', 'DEFAULT 6') "
                "WHERE name = ?",
                {textValue(table.name)});
            return {"before: table " + table.name, "after: table " + table.name};
        }
        return {};
    case 3:
        if (isCounted) {
            database.rows(
                "UPDATE sqlite_sequence SET seq = seq + 1 WHERE name = ?", {textValue(table.name)});
            return database.changes() == 1 ? QStringList("rows: sqlite_sequence") : QStringList();
        }
        return {};
    default:
        database.execute("PRAGMA user_version=7");
        return {"user_version"};
    }
}
