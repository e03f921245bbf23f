#include "guard/kept_database.h"
#include "guard/comparison.h"
#include "guard/database_failure.h"
#include "guard/messages.h"

#include <QFile>
#include <QFileInfo>

bool KeptDatabase::prepare(const QString &from, const durable::Ownership &ownership)
{
    if (QFileInfo(m_path).isDir()) {
        tellThatItIsNotKept("a directory has its name");
        return false;
    }
    // A file with the second name is always whole.
    int error = durable::copy(from, unfinished(), ownership, true);
    if (error == 0) {
        error = durable::rename(unfinished(), prepared());
    }
    if (error != 0) {
        tellThatItIsNotKept(systemText(error));
        discard();
    }
    return error == 0;
}

bool KeptDatabase::accept()
{
    const int error = durable::rename(prepared(), m_path);
    if (error == 0) {
        return true;
    }
    tellThatItIsNotKept(systemText(error));
    if (QFileInfo(m_path).isDir()) {
        discard();
    }
    return false;
}

void KeptDatabase::discard()
{
    // If it cannot be removed: it equals the database, and the next run settles it.
    QFile::remove(unfinished());
    QFile::remove(prepared());
}

bool KeptDatabase::isPrepared() const
{
    return QFile::exists(prepared());
}

void KeptDatabase::tellThatItIsNotKept(const QString &why) const
{
    tell(QFileInfo(m_path).fileName() + " is not kept: " + why);
}

bool KeptDatabase::settle(const QString &current)
{
    const bool hadUnfinished = QFile::remove(unfinished());
    if (!isPrepared()) {
        return hadUnfinished;
    }
    if (current.isEmpty()) {
        accept();
        return true;
    }
    // It is the database of before only if the commit has happened. If that cannot be found out, it
    // stays for the next run.
    const DatabaseDifferences differences = compareDatabases(prepared(), current);
    if (!differences.readError.isEmpty()) {
        tell("whether " + prepared() + " has to be kept is not known: " + differences.readError);
        return hadUnfinished;
    }
    if (differences.isEmpty()) {
        discard();
    } else {
        // A failure is reported there, and the next run tries again.
        accept();
    }
    return true;
}

QString KeptDatabase::afterSettling(const QString &current) const
{
    const bool isNewer = isPrepared() && !compareDatabases(prepared(), current).isEmpty();
    return isNewer ? prepared() : m_path;
}
