#pragma once

#include "guard/migration.h"
#include "guard/staging.h"

#include <QByteArray>
#include <QString>

/// Where staging is.
struct StagingPlace {
    QString parent;    ///< a directory that exists
    QString directory; ///< the one that staging makes in it, or the parent itself
};

/// @return the place that the options name, or the one beside the database
StagingPlace stagingPlace(
    const DevicePaths &device, const MigrationOptions &options, Staging::Place place);

/// Removes the staged files of a run that was cut, also in the directory that the options name:
/// this run may be staged elsewhere.
void removeLeftStaging(const DevicePaths &device, const MigrationOptions &options);

/// SQLite's temporary files are in this directory while this object lives.
class TemporaryFilesIn
{
public:
    explicit TemporaryFilesIn(const QString &directory);
    ~TemporaryFilesIn();
    Q_DISABLE_COPY(TemporaryFilesIn)

private:
    QByteArray m_before;
};
