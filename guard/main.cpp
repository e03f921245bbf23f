#include "guard/available_memory.h"
#include "guard/bubblewrap.h"
#include "guard/child_process.h"
#include "guard/command_line.h"
#include "guard/inner_guard.h"
#include "guard/known_versions.h"
#include "guard/limits.h"
#include "guard/messages.h"
#include "guard/migration.h"
#include "guard/rehearsal_command.h"
#include "guard/restoration.h"
#include "guard/sizing.h"
#include "guard/status_report.h"
#include "guard/target.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QTextCodec>
#include <QTextStream>

#include <csignal>
#include <sqlite3.h>

namespace
{
int exitStatus(Status status)
{
    return static_cast<int>(status);
}

void tell(const RunRecord &record)
{
    for (const QString &line : record.lines()) {
        tell(line);
    }
}

void print(const QStringList &lines)
{
    QTextStream output(stdout);
    output.setCodec("UTF-8");
    output << lines.join('\n') << '\n';
}

int showVersion(const DevicePaths &device)
{
    const std::optional<int> newest = newestKnownVersion(device.knownVersions);
    print(
        {"migration-guard " + QCoreApplication::applicationVersion(),
         "newest schema version " + (newest ? QString::number(*newest) : QString("unknown")),
         QString("SQLite library ") + sqlite3_libversion()});
    return exitStatus(Status::Success);
}

const char *const inMemory = "memory";
const char *const onDisk = "disk";

/// @return the size of a file system for staging in memory, nothing when staging has to be on the
/// disk
std::optional<qint64> memorySize(const DevicePaths &device, const CommandLine &line)
{
    if (!line.stagingDirectory.isEmpty()) {
        return std::nullopt;
    }
    const qint64 room = sizing::stagingRoom(sizing::measure(device.database), line.mend);
    if (availableMemory() < room + limits::memoryForProcesses) {
        tell(QString("not enough memory, staging on the disk"));
        return std::nullopt;
    }
    // The file system's root directory takes a page too.
    return room + limits::mebibyte;
}

/// Runs the guard again in a place of its own.
/// @return its exit status, nothing when there can be no such place
std::optional<int> runInside(const DevicePaths &device, const CommandLine &line)
{
    const auto arguments = [](const char *place) {
        return QStringList{QString("--") + insideOption, place} +
               QCoreApplication::arguments().mid(1);
    };
    if (const std::optional<qint64> size = memorySize(device, line)) {
        if (const std::optional<int> status = innerGuard::run(size, arguments(inMemory))) {
            return status;
        }
        // Bubblewrap may be too old to set the size of a file system in memory.
    }
    return innerGuard::run(std::nullopt, arguments(onDisk));
}

int run(const QString &application, const DevicePaths &device, const CommandLine &line)
{
    const std::optional<int> target =
        line.hasTarget ? parseTarget(line.target.toUtf8())
                       : readTarget(QDir(application).filePath("schemaversion.txt"));
    if (!target) {
        tell(
            line.hasTarget ? "not a schema version: " + line.target
                           : QString("no schema version in schemaversion.txt"));
        return exitStatus(Status::WrongCall);
    }
    if (!line.stagingDirectory.isEmpty() && !QFileInfo(line.stagingDirectory).isDir()) {
        tell("no directory for staging: " + line.stagingDirectory);
        return exitStatus(Status::WrongCall);
    }
    if (device.program.isEmpty()) {
        tell("no program that can be started in " + application);
        return exitStatus(Status::NothingChanged);
    }
    MigrationOptions options;
    const bool needsPlace =
        line.inside.isEmpty() && QFileInfo(device.database).isFile() && !bubblewrapPath().isEmpty();
    if (needsPlace) {
        if (const std::optional<int> status = runInside(device, line)) {
            return *status;
        }
        options.noNamespaces = true;
    }
    options.target = *target;
    options.strict = line.strict;
    options.fallBack = line.fallBack;
    options.keepDatabase = line.keepDatabase;
    options.mend = line.mend;
    options.acceptedCodes = line.acceptedCodes;
    options.waitSeconds = line.waitSeconds;
    if (line.inside == inMemory) {
        options.memoryStaging = innerGuard::memory;
    } else if (!line.stagingDirectory.isEmpty()) {
        options.stagingParent = QFileInfo(line.stagingDirectory).absoluteFilePath();
        if (sizing::isInMemory(options.stagingParent)) {
            options.memoryStaging = options.stagingParent;
        }
    }
    const RunRecord record = migrate(device, options);
    tell(record);
    return exitStatus(record.status);
}

int rehearseRun(const QString &application, const CommandLine &line)
{
    const std::optional<int> target = parseTarget(line.target.toUtf8());
    if (!target) {
        tell("not a schema version: " + line.target);
        return exitStatus(Status::WrongCall);
    }
    if (!line.stagingDirectory.isEmpty() && !QFileInfo(line.stagingDirectory).isDir()) {
        tell("no directory for staging: " + line.stagingDirectory);
        return exitStatus(Status::WrongCall);
    }
    return rehearseAsAsked(line, application, *target);
}

int showStatus(const DevicePaths &device, const CommandLine &line)
{
    const StatusReport report(device);
    print(line.json ? QStringList{report.json()} : report.lines());
    return line.tellsStatus ? report.lastStatus() : exitStatus(Status::Success);
}

int restoreDatabase(const DevicePaths &device, const CommandLine &line)
{
    RestorationOptions options;
    options.dryRun = line.dryRun;
    options.waitSeconds = line.waitSeconds;
    const RunRecord record = restore(device, options);
    tell(record);
    return exitStatus(record.status);
}
} // namespace

int main(int argc, char **argv)
{
    prepareDescriptors();
    // A caller that stops reading the output must not end the guard.
    std::signal(SIGPIPE, SIG_IGN);
    // Paths are UTF-8, whatever locale the device boots with.
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
    QCoreApplication guard(argc, argv);
    QCoreApplication::setApplicationName("migration-guard");
    QCoreApplication::setApplicationVersion(MIGRATION_GUARD_VERSION);

    const CommandLine line = parseCommandLine(QCoreApplication::arguments());
    if (!line.inside.isEmpty() && !innerGuard::endWithOuterGuard()) {
        return exitStatus(Status::NothingChanged);
    }
    const QString application = line.applicationDirectory.isEmpty()
                                    ? QCoreApplication::applicationDirPath()
                                    : QFileInfo(line.applicationDirectory).absoluteFilePath();
    const DevicePaths device(application);
    switch (line.command) {
    case CommandLine::Command::Run:
        return run(application, device, line);
    case CommandLine::Command::Rehearse:
        return rehearseRun(application, line);
    case CommandLine::Command::Status:
        return showStatus(device, line);
    case CommandLine::Command::Restore:
        return restoreDatabase(device, line);
    case CommandLine::Command::ShowVersion:
        return showVersion(device);
    case CommandLine::Command::ShowHelp:
        print({line.help.trimmed()});
        return exitStatus(Status::Success);
    case CommandLine::Command::Wrong:
        break;
    }
    tell(line.error);
    tell(QString("migration-guard --help says more"));
    return exitStatus(Status::WrongCall);
}
