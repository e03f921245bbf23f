#include "guard/staging_place.h"

#include <QCryptographicHash>
#include <QFile>

namespace
{
const char *const variable = "SQLITE_TMPDIR";

/// @return a directory whose name no other device's guard uses
QString directoryIn(const QString &parent, const DevicePaths &device)
{
    const QByteArray name =
        QCryptographicHash::hash(device.databases.toUtf8(), QCryptographicHash::Sha1).toHex();
    return parent + "/migration-guard." + name;
}
} // namespace

StagingPlace stagingPlace(
    const DevicePaths &device, const MigrationOptions &options, Staging::Place place)
{
    const QString &named = options.stagingParent;
    if (place == Staging::Place::Memory) {
        const QString &memory = options.memoryStaging;
        // If the file system in memory is this run's own, its root is the directory itself.
        return {memory, named.isEmpty() ? memory : directoryIn(memory, device)};
    }
    // If it is not on the disk, the named directory is in memory and was too small.
    const bool isOnDisk = !named.isEmpty() && named != options.memoryStaging;
    return isOnDisk ? StagingPlace{named, directoryIn(named, device)}
                    : StagingPlace{device.databases, device.staging};
}

void removeLeftStaging(const DevicePaths &device, const MigrationOptions &options)
{
    Staging::remove(device.staging);
    if (!options.stagingParent.isEmpty()) {
        Staging::remove(directoryIn(options.stagingParent, device));
    }
}

TemporaryFilesIn::TemporaryFilesIn(const QString &directory) : m_before(qgetenv(variable))
{
    qputenv(variable, QFile::encodeName(directory));
}

TemporaryFilesIn::~TemporaryFilesIn()
{
    m_before.isNull() ? qunsetenv(variable) : qputenv(variable, m_before);
}
