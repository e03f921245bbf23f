#include "fuzz/fuzzer.h"
#include "schema/foreign_key_clauses.h"

#include <QRegularExpression>
#include <QStringList>
#include <QVector>

namespace
{
/// The places of a character, in the order in which the lockstep searches find them. After the last
/// place a search finds nothing once, and then it starts again.
class Places
{
public:
    Places(const QString &text, QChar character)
    {
        for (int i = 0; i < text.size(); ++i) {
            if (text[i] == character) {
                m_places << i;
            }
        }
    }

    int count() const { return m_places.size(); }
    int at(int step) const { return m_places.value(step % (m_places.size() + 1), -1); }

private:
    QVector<int> m_places;
};

int clauseEndOf(const QString &text)
{
    const Places commas(text, ',');
    const Places openings(text, '(');
    const Places closings(text, ')');
    for (int step = 0; step < commas.count(); ++step) {
        if (commas.at(step) > closings.at(step) && openings.at(step) >= 0) {
            return commas.at(step);
        }
    }
    return text.length() - 1;
}

/// All clauses of a CREATE text. Only in the first one the letter case of the keyword counts.
QStringList clausesOf(const QString &createText)
{
    QStringList clauses;
    QRegularExpression keyword("FOREIGN KEY");
    QRegularExpressionMatch found = keyword.match(createText);
    keyword.setPatternOptions(QRegularExpression::CaseInsensitiveOption);
    while (found.hasMatch()) {
        const QString rest = createText.mid(found.capturedStart());
        clauses << rest.left(clauseEndOf(rest));
        found = keyword.match(createText, found.capturedStart() + clauses.last().size());
    }
    return clauses;
}
} // namespace

void fuzz(const QByteArray &input)
{
    // The first line is the column to drop.
    const QString column = QString::fromUtf8(input.left(input.indexOf('\n')));
    const QString createText = QString::fromUtf8(input.mid(input.indexOf('\n') + 1));
    QString expected;
    const QStringList clauses = clausesOf(createText);
    for (const QString &clause : clauses) {
        if (!clause.toCaseFolded().contains(column.toCaseFolded())) {
            expected += clause + ",";
        }
    }

    const QString kept = extractForeignKeys(createText, column);

    require(findClauseEnd(createText) == clauseEndOf(createText), "the clause ends at its comma");
    require(kept == expected, "the clauses that do not hold the column stay");
}
