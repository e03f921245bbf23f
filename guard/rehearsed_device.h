#pragma once

#include "guard/device_paths.h"
#include "guard/program_root.h"

#include <QString>
#include <QStringList>

#include <optional>

/// Which device a rehearsal is for. Paths are absolute.
struct RehearsedDeviceOptions {
    QString application; ///< the application directory, here and in the other root file system
    QString root = "/";  ///< a root file system that has the program, its libraries, reference data
    QString database;    ///< empty for this device's own
    std::optional<QString> platform;
    std::optional<QString> softwareVersion;
    QString registration;  ///< a file; empty for what is there
    QString referenceData; ///< a directory with the scripts; empty for what is there
    QString program;       ///< a file; empty for what is there
    int waitSeconds = 0;   ///< for a program that is writing to the database
};

/// A device made of copies: what a rehearsal changes.
class RehearsedDevice
{
public:
    /// @param directory an empty one, for the copies
    RehearsedDevice(const RehearsedDeviceOptions &options, const QString &directory);

    /// Makes the copies.
    /// @return false when that failed; reason() and detail() tell why
    bool make();

    /// @return why it could not be made, as in the record of a run
    const QString &reason() const { return m_reason; }
    const QString &detail() const { return m_detail; }

    /// @return true when what the caller has named is not there
    bool isWrongCall() const { return m_isWrongCall; }

    /// @return where everything is now
    const DevicePaths &paths() const { return m_paths; }

    /// @return where the database is that was copied, or where it would be
    const QString &database() const { return m_database; }

    /// @return names of what is neither given nor on the device: the program goes on without it
    const QStringList &assumed() const { return m_assumed; }

    const QString &platform() const { return m_platform; }
    const QString &softwareVersion() const { return m_softwareVersion; }

private:
    bool fail(const QString &reason, const QString &detail);
    bool findProgram();
    bool placeReferenceData();
    bool placeFiles();
    bool placeTextFile(
        const std::optional<QString> &given, const QString &inside, const QString &name);
    bool placePool();
    bool placeDatabases();
    bool copyDatabase(const QString &entry);

    QString resolved(const QString &path) const;
    QString outside(const QString &path) const;
    QString staged(const QString &name) const { return m_directory + '/' + name; }

    const RehearsedDeviceOptions &m_options;
    QString m_directory;
    DevicePaths m_device;  ///< this device, untouched
    QString m_application; ///< in the program's root
    ProgramRoot m_root;
    DevicePaths m_paths;
    QString m_database;
    QString m_reason;
    QString m_detail;
    bool m_isWrongCall = false;
    QStringList m_assumed;
    QString m_platform;
    QString m_softwareVersion;
};
