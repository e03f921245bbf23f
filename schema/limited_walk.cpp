#include "schema/limited_walk.h"

#include "schema/statements.h"

#include <QSqlError>

bool LimitedWalk::exec(const QString &select, const QMap<QString, QVariant> &values)
{
    m_select = select;
    m_values = values;
    m_rows = forwardOnlyQuery();
    return executeWith(m_rows, select, values);
}

bool LimitedWalk::next()
{
    if (m_rowsRead > m_limit || !m_rows.next()) {
        return false;
    }
    if (++m_rowsRead == uncountedRows) {
        m_limit += growth * countRows(m_select, m_values);
    }
    return m_rowsRead <= m_limit;
}

bool LimitedWalk::readToTheEnd() const
{
    return m_rowsRead <= m_limit && ::readToTheEnd(m_rows);
}

QString LimitedWalk::databaseText() const
{
    return m_rows.lastError().databaseText();
}
