#pragma once

#include "guard/device_paths.h"
#include "guard/program_root.h"

#include <QString>
#include <QStringList>

#include <optional>

/// The device that a rehearsal is for. Paths are absolute.
struct RehearsedDeviceOptions {
    QString application; ///< the application directory, here and in the other root file system
    QString root = "/";  ///< a root file system that has the program, its libraries, reference data
    QString database;    ///< empty for this device's own
    std::optional<QString> platform;
    std::optional<QString> softwareVersion;
    QString registration;  ///< a file; empty for the device's own
    QString referenceData; ///< a directory with the scripts; empty for the device's own
    QString program;       ///< a file; empty for the device's own
    int waitSeconds = 0;   ///< to wait for a program that is writing to the database
};

/// A device made of copies: the only one that a rehearsal changes.
class RehearsedDevice
{
public:
    /// @param directory an empty one, for the copies
    RehearsedDevice(const RehearsedDeviceOptions &options, const QString &directory);

    /// Makes the copies.
    /// @return false when that failed; reason() and detail() tell why
    bool make();

    /// @return why it could not be made; a reason as in the record of a run
    const QString &reason() const { return m_reason; }
    const QString &detail() const { return m_detail; }

    /// @return true when something that the caller named is not there
    bool isWrongCall() const { return m_isWrongCall; }

    /// @return the paths of the copies
    const DevicePaths &paths() const { return m_paths; }

    /// @return where the copied database is, or would be
    const QString &database() const { return m_database; }

    /// @return names of what is assumed: it was neither given nor on the device, and the program
    /// runs without it
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
    QStringList rootOptions() const;

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
