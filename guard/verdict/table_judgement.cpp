#include "guard/verdict/table_judgement.h"

#include "guard/verdict/row_identity.h"
#include "guard/verdict/row_question.h"
#include "guard/verdict/rows_in_order.h"

#include <algorithm>
#include <cmath>
#include <deque>
#include <map>

namespace
{
/// Columns that are read in one statement: SQLite refuses more than 2,000.
constexpr int columnsAtOnce = 500;

/// Bytes of rows that all findings together keep.
constexpr qint64 mostRowBytes = 32 * 1024 * 1024;

/// A column of before, and where its values are now.
struct ColumnPair {
    int before = 0;   ///< index in the shape and in the walk
    QByteArray after; ///< null when the column is gone
};

/// A rule of the table of versions for rows that are gone.
struct LossQuestion {
    LossQuestion(const TableCase &table, const TableWalk::Rule &rule)
        : version(rule.version), rows(table, rule.rows)
    {
    }

    int version;
    RowQuestion rows;
};

/// A rule of the table of versions for a row's value.
struct ValueQuestion {
    ValueQuestion(const TableCase &table, const ColumnWalk::Rule &valueRule)
        : rule(valueRule), becomes(table, rule.value.becomes), any(table, rule.value.any)
    {
    }

    const ColumnWalk::Rule rule;
    RowQuestion becomes;
    RowQuestion any;
};

class Judgement
{
public:
    Judgement(
        const TableCase &table, const RowIdentity &identity, TableNumbers &numbers,
        RowKeeper &keeper)
        : m_table(table), m_identity(identity), m_numbers(numbers), m_keeper(keeper)
    {
        m_reference =
            table.shape.rowid.isEmpty() ? QByteArrayList() : QByteArrayList{table.shape.rowid};
        if (m_reference.isEmpty()) {
            for (const QByteArray &column : table.shape.key) {
                m_reference << quotedName(column);
            }
        }
        for (const TableWalk::Rule &rule : table.walk.rules) {
            m_rowQuestions.emplace_back(table, rule);
        }
    }

    Unreadable run(const TableShape &after, QVector<Finding> &findings)
    {
        QVector<ColumnPair> columns = {};
        for (int column = 0; column < m_table.shape.columns.size(); ++column) {
            if (m_table.ownColumns.contains(folded(m_table.shape.columns[column]))) {
                continue;
            }
            const int place = placeAfter(m_table.walk.columns[column], after);
            columns << ColumnPair{column, place < 0 ? QByteArray() : after.columns[place]};
            m_valueQuestions.emplace_back();
            for (const ColumnWalk::Rule &rule : m_table.walk.columns[column].rules) {
                m_valueQuestions.back().emplace_back(m_table, rule);
            }
        }
        for (int first = 0; first == 0 || first < columns.size(); first += columnsAtOnce) {
            const Unreadable end = readColumns(columns.mid(first, columnsAtOnce), first);
            if (end != Unreadable::No) {
                return end;
            }
        }
        addLostColumns(columns);
        for (const auto &[key, finding] : m_findings) {
            findings << finding;
        }
        return Unreadable::No;
    }

private:
    /// Kind, column of before (-1 for none), taker.
    using FindingKey = std::tuple<QByteArray, int, Purpose>;

    Finding &finding(const QByteArray &kind, int column, const Purpose &purpose)
    {
        Finding &found = m_findings[{kind, column, purpose}];
        found.kind = kind;
        found.object = m_table.name;
        found.purpose = purpose;
        if (column >= 0) {
            found.column = m_table.shape.columns[column];
        }
        return found;
    }

    void note(const QByteArray &kind, int column, const Purpose &purpose, const FindingRow &row)
    {
        Finding &found = finding(kind, column, purpose);
        ++found.numbers["rows"];
        m_keeper.keep(found, row);
    }

    Unreadable readColumns(const QVector<ColumnPair> &columns, int first)
    {
        QByteArrayList ofBefore = m_reference;
        QByteArrayList ofAfter = {"1"};
        for (const ColumnPair &column : columns) {
            const QByteArray name = quotedName(m_table.shape.columns[column.before]);
            ofBefore << (column.after.isNull() ? name + " IS NOT NULL" : name);
            ofAfter << (column.after.isNull() ? "1" : quotedName(column.after));
        }
        RowsInOrder before(
            m_table.before, m_table.name, m_identity.before, ofBefore, m_identity.tieBreakerBefore);
        RowsInOrder after(
            m_table.after,
            m_table.nameAfter,
            m_identity.after,
            ofAfter,
            m_identity.tieBreakerAfter);
        const bool countsRows = first == 0;
        const auto passNew = [&] {
            m_numbers.rowsAfter += countsRows;
            m_numbers.rowsNew += countsRows;
            after.next();
        };
        after.next();
        while (before.next()) {
            m_numbers.rowsBefore += countsRows;
            while (after.hasRow() && before.compareKey(after) > 0) {
                passNew();
            }
            if (after.hasRow() && before.compareKey(after) == 0) {
                m_numbers.rowsAfter += countsRows;
                compareRow(before, after, columns, first);
                after.next();
            } else if (countsRows) {
                ++m_numbers.rowsGone;
                note("rows-lost", -1, takerOfRow(before), {m_table.name, before.keyText(), {}, {}});
            }
        }
        while (after.hasRow()) {
            passNew();
        }
        if (!before.isComplete()) {
            return Unreadable::Before;
        }
        return after.isComplete() ? Unreadable::No : Unreadable::After;
    }

    void compareRow(
        const RowsInOrder &before, const RowsInOrder &after, const QVector<ColumnPair> &columns,
        int first)
    {
        for (int index = 0; index < columns.size(); ++index) {
            const int placeBefore = before.place(m_reference.size() + index);
            const int placeAfter = after.place(1 + index);
            const ColumnPair &column = columns[index];
            if (column.after.isNull()) {
                m_lostValues[column.before] += sqlite3_column_int(before.row(), placeBefore);
            } else if (!isSameValue(
                           before.row(),
                           placeBefore,
                           after.row(),
                           placeAfter,
                           m_table.before.isUtf16())) {
                noteValue(before, placeBefore, after, placeAfter, column.before, first + index);
            }
        }
    }

    void noteValue(
        const RowsInOrder &before, int placeBefore, const RowsInOrder &after, int placeAfter,
        int column, int question)
    {
        const FindingRow row = {
            m_table.name,
            before.keyText(),
            valueText(before.row(), placeBefore),
            valueText(after.row(), placeAfter)};
        for (ValueQuestion &asked : m_valueQuestions[size_t(question)]) {
            if (allows(asked, before, placeBefore, after.row(), placeAfter)) {
                note("values-lost", column, {Purpose::Taker::Version, asked.rule.version}, row);
                return;
            }
        }
        const ColumnWalk &walk = m_table.walk.columns[column];
        if (walk.names.first() == m_table.uniqueNames &&
            isMadeUnique(before.row(), placeBefore, after.row(), placeAfter)) {
            note("renamed", -1, {}, row);
        } else {
            note("values-lost", column, takerBesides(walk.droppedBy), row);
        }
    }

    /// @return whether a rule allows the value that a row of before has after
    bool allows(
        ValueQuestion &asked, const RowsInOrder &before, int placeBefore, sqlite3_stmt *after,
        int placeAfter) const
    {
        const int reference = before.place(0);
        if (asked.becomes.ask(before.row(), reference) &&
            isSameValue(asked.becomes.answer(), 0, after, placeAfter, m_table.before.isUtf16())) {
            return true;
        }
        if (asked.any.ask(before.row(), reference) &&
            sqlite3_column_int(asked.any.answer(), 0) != 0) {
            return true;
        }
        const auto isNumber = [](sqlite3_stmt *row, int column) {
            const int type = sqlite3_column_type(row, column);
            return type == SQLITE_INTEGER || type == SQLITE_FLOAT;
        };
        const double within = asked.rule.value.within;
        if (within <= 0 || !isNumber(before.row(), placeBefore) || !isNumber(after, placeAfter)) {
            return false;
        }
        const double number = sqlite3_column_double(before.row(), placeBefore);
        return std::fabs(sqlite3_column_double(after, placeAfter) - number) <=
               within * std::fabs(number);
    }

    /// @return whether the new name is the old one with "_" and digits added, once or several times
    static bool isMadeUnique(
        sqlite3_stmt *before, int placeBefore, sqlite3_stmt *after, int placeAfter)
    {
        if (sqlite3_column_type(before, placeBefore) == SQLITE_NULL ||
            sqlite3_column_type(after, placeAfter) != SQLITE_TEXT) {
            return false;
        }
        const QByteArray oldName(
            reinterpret_cast<const char *>(sqlite3_column_text(before, placeBefore)),
            sqlite3_column_bytes(before, placeBefore));
        const QByteArray newName(
            reinterpret_cast<const char *>(sqlite3_column_text(after, placeAfter)),
            sqlite3_column_bytes(after, placeAfter));
        // Equal names may differ in letter case; the new name is built from the first of them.
        if (newName.size() <= oldName.size() + 1 ||
            folded(newName.left(oldName.size())) != folded(oldName)) {
            return false;
        }
        bool hasDigit = true;
        for (const char letter : newName.mid(oldName.size())) {
            const bool isDigit = letter >= '0' && letter <= '9';
            if (!isDigit && (letter != '_' || !hasDigit)) {
                return false;
            }
            hasDigit = isDigit;
        }
        return hasDigit && newName[oldName.size()] == '_';
    }

    Purpose takerOfRow(const RowsInOrder &before)
    {
        for (LossQuestion &asked : m_rowQuestions) {
            if (asked.rows.ask(before.row(), before.place(0)) &&
                sqlite3_column_int(asked.rows.answer(), 0) != 0) {
                return {Purpose::Taker::Version, asked.version};
            }
        }
        return takerBesides(m_table.walk.droppedBy);
    }

    /// @param droppedBy the version that drops the whole table or column, 0 for none
    Purpose takerBesides(int droppedBy) const
    {
        if (droppedBy != 0) {
            return {Purpose::Taker::Version, droppedBy};
        }
        if (m_table.hasUnknownVersion) {
            return {Purpose::Taker::Unknown, 0};
        }
        return {m_table.isNamedByScript ? Purpose::Taker::Script : Purpose::Taker::Nobody, 0};
    }

    void addLostColumns(const QVector<ColumnPair> &columns)
    {
        for (const ColumnPair &column : columns) {
            if (!column.after.isNull()) {
                continue;
            }
            Purpose purpose = takerBesides(m_table.walk.columns[column.before].droppedBy);
            if (purpose.taker == Purpose::Taker::Script) {
                purpose.taker = Purpose::Taker::Nobody;
            }
            finding("column-lost", column.before, purpose).numbers["rows"] =
                m_lostValues.value(column.before);
        }
    }

    const TableCase &m_table;
    const RowIdentity &m_identity;
    TableNumbers &m_numbers;
    RowKeeper &m_keeper;
    QByteArrayList m_reference; ///< the expressions by which a question finds a row of before
    std::deque<LossQuestion> m_rowQuestions;
    std::deque<std::deque<ValueQuestion>>
        m_valueQuestions; ///< by column, in the order of the steps
    QHash<int, qint64> m_lostValues;
    std::map<FindingKey, Finding> m_findings;
};
} // namespace

void RowKeeper::keep(Finding &finding, const FindingRow &row)
{
    const qint64 overhead = sizeof(FindingRow);
    m_bytes += overhead + row.key.size() + row.before.size() + row.after.size();
    if (m_bytes > mostRowBytes) {
        finding.hasAllRows = false;
    } else {
        finding.rows << row;
    }
}

Unreadable judgeTable(
    const TableCase &table, QVector<Finding> &findings, TableNumbers &numbers, RowKeeper &keeper)
{
    const std::optional<TableShape> after = table.after.shape(table.nameAfter);
    const std::optional<RowIdentity> identity = rowIdentity(table);
    if (!after || !identity) {
        return Unreadable::After;
    }
    return Judgement(table, *identity, numbers, keeper).run(*after, findings);
}
