#include "guard/kept_database.h"
#include "guard/comparison.h"

#include <QFile>

int KeptDatabase::prepare(const QString &from, const durable::Ownership &ownership)
{
    // Under its second name it is never half of one.
    const int error = durable::copy(from, unfinished(), ownership, true);
    return error != 0 ? error : durable::rename(unfinished(), prepared());
}

bool KeptDatabase::accept()
{
    return durable::rename(prepared(), m_path) == 0;
}

void KeptDatabase::discard()
{
    QFile::remove(unfinished());
    QFile::remove(prepared());
}

bool KeptDatabase::isPrepared() const
{
    return QFile::exists(prepared());
}

bool KeptDatabase::settle(const QString &current)
{
    bool changed = QFile::remove(unfinished());
    if (!isPrepared()) {
        return changed;
    }
    // It is the database of before only when the commit has happened.
    if (compareDatabases(prepared(), current).isEmpty()) {
        QFile::remove(prepared());
    } else {
        accept();
    }
    return true;
}

QString KeptDatabase::afterSettling(const QString &current) const
{
    const bool isNewer = isPrepared() && !compareDatabases(prepared(), current).isEmpty();
    return isNewer ? prepared() : m_path;
}
