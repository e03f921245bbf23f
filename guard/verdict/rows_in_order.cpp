#include "guard/verdict/rows_in_order.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace
{
/// Bytes of a text or a BLOB that a literal shows.
constexpr int longestValue = 1000;

QByteArray statementText(
    const QByteArray &table, const QByteArrayList &key, const QByteArrayList &others,
    const QByteArray &tieBreaker)
{
    QByteArrayList order;
    for (int column = 1; column <= key.size(); ++column) {
        order << QByteArray::number(column) + " COLLATE BINARY";
    }
    if (!tieBreaker.isEmpty()) {
        // If several rows get the same key, the program keeps the last one.
        order << tieBreaker + " DESC";
    }
    // NOT INDEXED: a damaged index could have other values than the table.
    const QByteArray text =
        "SELECT " + (key + others).join(", ") + " FROM " + quotedName(table) + " NOT INDEXED";
    return order.isEmpty() ? text : text + " ORDER BY " + order.join(", ");
}

/// The bytes as stored: the function for the other encoding would convert the text.
QByteArray storedBytes(sqlite3_stmt *row, int column, bool isUtf16)
{
    const int size =
        isUtf16 ? sqlite3_column_bytes16(row, column) : sqlite3_column_bytes(row, column);
    return QByteArray::fromRawData(
        static_cast<const char *>(sqlite3_column_blob(row, column)), size);
}

/// SQLite's order: NULL, numbers, texts, BLOBs.
int rankOf(int type)
{
    switch (type) {
    case SQLITE_NULL:
        return 0;
    case SQLITE_INTEGER:
    case SQLITE_FLOAT:
        return 1;
    case SQLITE_TEXT:
        return 2;
    default:
        return 3;
    }
}

template <typename Number> int compare(Number left, Number right)
{
    return left < right ? -1 : (left > right ? 1 : 0);
}

int compareIntegerWithReal(qint64 integer, double real)
{
    constexpr double beyondIntegers = 9223372036854775808.0;
    if (real >= beyondIntegers) {
        return -1;
    }
    if (real < -beyondIntegers) {
        return 1;
    }
    const int whole = compare(integer, static_cast<qint64>(real));
    return whole != 0 ? whole : compare(0.0, real - std::trunc(real));
}

int compareNumbers(sqlite3_stmt *left, int leftColumn, sqlite3_stmt *right, int rightColumn)
{
    const bool leftIsInteger = sqlite3_column_type(left, leftColumn) == SQLITE_INTEGER;
    const bool rightIsInteger = sqlite3_column_type(right, rightColumn) == SQLITE_INTEGER;
    if (leftIsInteger && rightIsInteger) {
        return compare(
            sqlite3_column_int64(left, leftColumn), sqlite3_column_int64(right, rightColumn));
    }
    if (leftIsInteger) {
        return compareIntegerWithReal(
            sqlite3_column_int64(left, leftColumn), sqlite3_column_double(right, rightColumn));
    }
    if (rightIsInteger) {
        return -compareIntegerWithReal(
            sqlite3_column_int64(right, rightColumn), sqlite3_column_double(left, leftColumn));
    }
    return compare(
        sqlite3_column_double(left, leftColumn), sqlite3_column_double(right, rightColumn));
}

int compareValues(sqlite3_stmt *left, sqlite3_stmt *right, int column, bool isUtf16)
{
    const int leftRank = rankOf(sqlite3_column_type(left, column));
    const int rightRank = rankOf(sqlite3_column_type(right, column));
    if (leftRank != rightRank || leftRank == 0) {
        return compare(leftRank, rightRank);
    }
    if (leftRank == 1) {
        return compareNumbers(left, column, right, column);
    }
    const QByteArray leftBytes = storedBytes(left, column, isUtf16);
    const QByteArray rightBytes = storedBytes(right, column, isUtf16);
    const int common = std::memcmp(
        leftBytes.constData(),
        rightBytes.constData(),
        static_cast<size_t>(std::min(leftBytes.size(), rightBytes.size())));
    return common != 0 ? common : compare(leftBytes.size(), rightBytes.size());
}

/// @return a literal that SQLite reads as this number, and not as an integer
QByteArray realText(double number)
{
    if (std::isinf(number)) {
        return number < 0 ? "-9e999" : "9e999";
    }
    const QByteArray text = QByteArray::number(number, 'g', 17);
    return text.contains('.') || text.contains('e') ? text : text + ".0";
}

/// Compared as bits, 0.0 differs from -0.0.
quint64 bitsOf(double number)
{
    quint64 bits = 0;
    std::memcpy(&bits, &number, sizeof bits);
    return bits;
}
} // namespace

RowsInOrder::RowsInOrder(
    const JudgedDatabase &database, const QByteArray &table, const QByteArrayList &key,
    const QByteArrayList &others, const QByteArray &tieBreaker)
    : m_statement(database.connection(), statementText(table, key, others, tieBreaker)),
      m_keySize(key.size()), m_isUtf16(database.isUtf16())
{
}

bool RowsInOrder::next()
{
    m_hasRow = !m_isOutOfOrder && m_statement.step();
    // SQLite relies on rising row ids and does not sort by them, so this is checked here.
    if (m_hasRow && m_keySize == 1 && sqlite3_column_type(row(), 0) == SQLITE_INTEGER) {
        const qint64 number = sqlite3_column_int64(row(), 0);
        m_isOutOfOrder = m_lastNumber && number < *m_lastNumber;
        m_hasRow = !m_isOutOfOrder;
        m_lastNumber = number;
    }
    return m_hasRow;
}

int RowsInOrder::compareKey(const RowsInOrder &other) const
{
    for (int column = 0; column < m_keySize; ++column) {
        const int order = compareValues(row(), other.row(), column, m_isUtf16);
        if (order != 0) {
            return order;
        }
    }
    return 0;
}

QByteArray RowsInOrder::keyText() const
{
    QByteArrayList values;
    for (int column = 0; column < m_keySize; ++column) {
        values << valueText(row(), column);
    }
    return values.join(", ");
}

bool isSameValue(
    sqlite3_stmt *left, int leftColumn, sqlite3_stmt *right, int rightColumn, bool isUtf16)
{
    const int type = sqlite3_column_type(left, leftColumn);
    if (type != sqlite3_column_type(right, rightColumn)) {
        return false;
    }
    if (type == SQLITE_INTEGER) {
        return sqlite3_column_int64(left, leftColumn) == sqlite3_column_int64(right, rightColumn);
    }
    if (type == SQLITE_FLOAT) {
        return bitsOf(sqlite3_column_double(left, leftColumn)) ==
               bitsOf(sqlite3_column_double(right, rightColumn));
    }
    return type == SQLITE_NULL ||
           storedBytes(left, leftColumn, isUtf16) == storedBytes(right, rightColumn, isUtf16);
}

QByteArray valueText(sqlite3_stmt *row, int column)
{
    switch (sqlite3_column_type(row, column)) {
    case SQLITE_NULL:
        return "NULL";
    case SQLITE_INTEGER:
        return QByteArray::number(sqlite3_column_int64(row, column));
    case SQLITE_FLOAT:
        return realText(sqlite3_column_double(row, column));
    default:
        break;
    }
    const bool isBlob = sqlite3_column_type(row, column) == SQLITE_BLOB;
    const char *bytes = isBlob ? static_cast<const char *>(sqlite3_column_blob(row, column))
                               : reinterpret_cast<const char *>(sqlite3_column_text(row, column));
    const int size = sqlite3_column_bytes(row, column);
    const QByteArray shown(bytes, std::min(size, longestValue));
    const QByteArray cut = size > longestValue ? "..." : "";
    const QByteArray hex = "x'" + shown.toHex() + '\'';
    if (isBlob) {
        return hex + cut;
    }
    // A literal would end at the zero byte.
    return shown.contains('\0') ? "CAST(" + hex + " AS TEXT)" + cut
                                : '\'' + QByteArray(shown).replace("'", "''") + '\'' + cut;
}
