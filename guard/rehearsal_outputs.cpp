#include "guard/rehearsal_outputs.h"
#include "guard/device_paths.h"
#include "guard/durable_file.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cstdlib>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
/// @return the path with the links before its last part followed
QString placeOf(const QString &path)
{
    const QFileInfo file(path);
    return QDir(file.absolutePath()).canonicalPath() + '/' + file.fileName();
}

/// @return the places where no report or result may be written
QStringList protectedPlaces(const RehearsalLine &asked, const DevicePaths &device)
{
    QStringList places;
    for (const QString &database : asked.databases + QStringList{device.databaseEntry}) {
        for (const char *suffix : {"", "-journal", "-wal", "-shm"}) {
            places << placeOf(database + suffix)
                   << QFileInfo(database).canonicalFilePath() + suffix;
        }
    }
    for (const QString &file :
         {asked.registration,
          asked.program,
          device.program,
          device.knownVersions,
          device.platform,
          device.log,
          device.note,
          device.lastMigration,
          device.kept,
          device.copy,
          device.replaced,
          device.replacedLog}) {
        if (!file.isEmpty()) {
            places << placeOf(file) << QFileInfo(file).canonicalFilePath();
        }
    }
    // The paths of links that lead nowhere.
    places.removeAll(QString());
    return places;
}

/// Reading the directory would change its time of access, so the name of the file has to do.
/// @return true for a script in the directory of the reference data
bool isScript(const QString &place, const QString &directory)
{
    return !directory.isEmpty() && place.endsWith(".sql") &&
           QFileInfo(place).path() == QDir(directory).canonicalPath();
}

/// @return true when something other than a file has this name. A link is not followed: it may lead to
/// a terminal or a pipe, or to a file that a program has open, as /dev/stdout does.
bool isNoFile(const QString &path)
{
    struct stat status;
    return lstat(QFile::encodeName(path).constData(), &status) == 0 && !S_ISREG(status.st_mode);
}
} // namespace

OutputFile::OutputFile(const QString &path)
    : m_path(path), m_unfinished(QFile::encodeName(path) + ".XXXXXX"),
      m_file(mkostemp(m_unfinished.data(), O_CLOEXEC))
{
}

OutputFile::~OutputFile()
{
    if (m_file.isOpen()) {
        unlink(m_unfinished.constData());
    }
}

QString OutputFile::unfinished() const
{
    return QFile::decodeName(m_unfinished);
}

bool OutputFile::takesStandardOutput() const
{
    return dup2(m_file.get(), STDOUT_FILENO) == STDOUT_FILENO;
}

bool OutputFile::hasLines(int count) const
{
    QFile file(unfinished());
    bool isWhole = file.open(QIODevice::ReadOnly);
    for (; isWhole && count > 0; --count) {
        isWhole = file.readLine().endsWith('\n');
    }
    return isWhole;
}

bool OutputFile::finish()
{
    setMode();
    if (durable::rename(unfinished(), m_path) != 0) {
        return false;
    }
    m_file.close();
    return true;
}

/// A file system without modes refuses this, which does no harm.
void OutputFile::setMode() const
{
    if (QFileInfo::exists(m_path)) {
        const durable::Ownership replaced = durable::ownershipOf(m_path);
        const bool isOwned = fchown(m_file.get(), replaced.owner, replaced.group) == 0;
        // The rights of the old group are not those of this user's group.
        const mode_t groupRights = 0070;
        fchmod(m_file.get(), isOwned ? replaced.mode : replaced.mode & ~groupRights);
    } else {
        const mode_t readAndWrite = 0666;
        const mode_t mask = umask(0);
        umask(mask);
        fchmod(m_file.get(), readAndWrite & ~mask);
    }
}

HeldText::HeldText() : m_file(memfd_create("rehearsal", MFD_CLOEXEC)) {}

QByteArray HeldText::content() const
{
    QFile file;
    const bool isOpen = file.open(m_file.get(), QIODevice::ReadOnly) && file.seek(0);
    return isOpen ? file.readAll() : QByteArray();
}

HeldOutput::HeldOutput() : m_caller(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0))
{
    dup2(m_held.descriptor(), STDOUT_FILENO);
}

HeldOutput::~HeldOutput()
{
    dup2(m_caller.get(), STDOUT_FILENO);
}

QString errorOfOutputs(const CommandLine &line, const QString &application)
{
    const RehearsalLine &asked = line.rehearsal;
    const DevicePaths device(application);
    QStringList places = protectedPlaces(asked, device);
    for (const QString &file : {asked.jsonFile, asked.resultFile}) {
        if (file.isEmpty()) {
            continue;
        }
        const QString place = placeOf(file);
        if (places.contains(place) || places.contains(QFileInfo(file).canonicalFilePath()) ||
            isScript(place, asked.referenceData) || isScript(place, device.references)) {
            return "is needed for something else: " + file;
        }
        if (isNoFile(file)) {
            return "is not a regular file: " + file;
        }
        places << place;
    }
    return QString();
}
