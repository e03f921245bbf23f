#include "guard/rehearsed_device.h"
#include "guard/durable_file.h"
#include "guard/limits.h"
#include "guard/raw_copy.h"
#include "guard/regular_file.h"
#include "guard/root_directory.h"
#include "guard/run_record.h"
#include "guard/staging.h"
#include "guard/verdict/version_table.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace
{
const char *const registrationPath = "/Harlo/registration.xml";
const char *const softwareVersionFile = "/quillmoor/softwareversion.txt";
/// The platform that the program assumes when there is no platform file.
const char *const platformWithoutFile = "TORVIK";

bool isFile(const QString &path)
{
    return QFileInfo(path).isFile();
}

/// Copies a directory, or a link that does not lead to a file.
void copyWhatIsNoFile(const QString &path, const QString &copy)
{
    const QFileInfo file(path);
    if (file.isFile()) {
        return;
    }
    if (file.isSymLink()) {
        QFile::link(rootDirectory::linkText(path), copy);
    } else if (file.isDir()) {
        QDir().mkdir(copy);
    }
}

QString realPath(const QString &path)
{
    return QFileInfo(path).canonicalFilePath();
}
} // namespace

RehearsedDevice::RehearsedDevice(const RehearsedDeviceOptions &options, const QString &directory)
    : m_options(options), m_directory(directory), m_device(options.application),
      m_root(options.root)
{
}

bool RehearsedDevice::make()
{
    return findProgram() && placeReferenceData() && placeFiles() && placePool() && placeDatabases();
}

QString RehearsedDevice::resolved(const QString &path) const
{
    return rootDirectory::resolve(m_options.root, path);
}

QString RehearsedDevice::outside(const QString &path) const
{
    return rootDirectory::outside(m_options.root, path);
}

bool RehearsedDevice::fail(const QString &reason, const QString &detail)
{
    m_reason = reason;
    m_detail = detail;
    return false;
}

bool RehearsedDevice::findProgram()
{
    m_application = resolved(m_options.application);
    QString inside = m_application + '/' + programName;
    if (m_options.program.isEmpty()) {
        // The program looks for its files in its real directory, not in that of a link to it.
        inside = resolved(inside);
        m_application = QFileInfo(inside).path();
        m_paths.program = outside(inside);
    } else {
        m_paths.program = realPath(m_options.program);
    }
    if (!isFile(m_paths.program) || !QFileInfo(m_paths.program).isExecutable()) {
        m_isWrongCall = !m_options.program.isEmpty();
        return fail(
            "program-broken",
            "no program that can be started: " +
                (m_isWrongCall ? m_options.program : m_paths.program));
    }
    const QString known = "/schema-versions.json";
    const QString besideGiven = QFileInfo(m_paths.program).path() + known;
    m_paths.knownVersions = !m_options.program.isEmpty() && isFile(besideGiven)
                                ? besideGiven
                                : outside(resolved(m_application + known));
    m_root.place(inside, m_paths.program);
    m_paths.view.isDevice = false;
    m_paths.view.program = inside;
    return true;
}

bool RehearsedDevice::placeReferenceData()
{
    m_paths.references = staged("references");
    QDir().mkdir(m_paths.references);
    const VersionTable versions(m_paths.knownVersions);
    bool isThere = false;
    for (const QString &script : versions.everyRun().scripts) {
        const QString inside = resolved(m_application + '/' + script);
        QString source = outside(inside);
        if (!m_options.referenceData.isEmpty()) {
            source = realPath(m_options.referenceData + '/' + script);
            if (!isFile(source)) {
                m_isWrongCall = true;
                return fail("program-broken", "no " + script + " in " + m_options.referenceData);
            }
            m_root.place(inside, source);
        }
        if (isFile(source)) {
            isThere = true;
            QFile::link(source, m_paths.references + '/' + script);
        }
    }
    if (!isThere) {
        m_assumed << "referenceData";
    }
    return true;
}

/// Makes a file of one line in its place.
/// @param given the line, nothing to copy the device's file
bool RehearsedDevice::placeTextFile(
    const std::optional<QString> &given, const QString &inside, const QString &name)
{
    if (!given) {
        return true;
    }
    const QString path = staged(name);
    const int error = durable::replace(path, given->toUtf8() + '\n', durable::Ownership(), false);
    if (error != 0) {
        return fail("no-room", systemText(error));
    }
    m_root.place(inside, path);
    return true;
}

/// A few small files distinguish one device from another. If another root file system has none of
/// its own, it gets this device's.
bool RehearsedDevice::placeFiles()
{
    const QString platform = resolved(platformPath);
    m_paths.platform = outside(platform);
    if (m_options.platform) {
        m_paths.platform = staged("platform");
    } else if (!isFile(m_paths.platform) && isFile(platformPath)) {
        m_paths.platform = platformPath;
        m_root.place(platform, realPath(platformPath));
    }
    const QString version = resolved(m_application + softwareVersionFile);
    if (!placeTextFile(m_options.platform, platform, "platform") ||
        !placeTextFile(m_options.softwareVersion, version, "software-version")) {
        return false;
    }
    m_platform = platformWithoutFile;
    if (isFile(m_paths.platform)) {
        m_platform = firstLineOfSmallFile(m_paths.platform, limits::largestPlatform);
    } else {
        m_assumed << "platform";
    }
    m_softwareVersion = m_options.softwareVersion.value_or(
        firstLineOfSmallFile(outside(version), limits::largestPlatform));
    if (!m_options.softwareVersion && !isFile(outside(version))) {
        m_assumed << "softwareVersion";
    }

    const QString registration = resolved(registrationPath);
    if (!m_options.registration.isEmpty()) {
        const QString given = realPath(m_options.registration);
        if (!isFile(given)) {
            m_isWrongCall = true;
            return fail("program-broken", "no file: " + m_options.registration);
        }
        m_root.place(registration, given);
    } else if (!isFile(outside(registration))) {
        if (isFile(registrationPath)) {
            m_root.place(registration, realPath(registrationPath));
        } else {
            m_assumed << "registration";
        }
    }
    return true;
}

/// The program may delete files there. It is not known to read any, so empty ones will do.
bool RehearsedDevice::placePool()
{
    const QString inside = resolved(poolPath);
    if (!QFileInfo(outside(inside)).isDir()) {
        return true;
    }
    m_paths.pool = staged("pool");
    m_paths.view.pool = inside;
    QDir().mkdir(m_paths.pool);
    const bool isThisDevice = m_options.database.isEmpty();
    if (!stagedPool::fill(isThisDevice ? m_device.pool : QString(), m_paths.pool)) {
        return fail("no-room", "for the files of the pool");
    }
    m_root.place(inside, m_paths.pool, ProgramRoot::Access::Writable);
    return true;
}

bool RehearsedDevice::placeDatabases()
{
    const bool isThisDevice = m_options.database.isEmpty();
    const QString entry = isThisDevice ? m_device.databaseEntry : m_options.database;
    m_database = isThisDevice && !m_device.database.isEmpty() ? m_device.database : entry;
    m_paths.databaseEntry = entry;
    if (isThisDevice && m_device.databases.isEmpty()) {
        // On the device the program finds no directory there either.
        m_paths.view.root = rootOptions();
        return true;
    }
    const QString databases = staged("databases");
    QDir().mkdir(databases);
    if (!copyDatabase(entry)) {
        return false;
    }
    m_paths.placeDatabases(databases);
    m_paths.databaseEntry = databases + '/' + databaseName;
    if (isThisDevice) {
        // Files that earlier runs have left decide what a run does and keeps.
        for (const auto &[file, copy] :
             {std::make_pair(m_device.note, m_paths.note),
              std::make_pair(m_device.lastMigration, m_paths.lastMigration)}) {
            durable::copy(file, copy, durable::Ownership(), false);
        }
        if (QFileInfo::exists(m_device.kept)) {
            QFile::link(m_device.kept, m_paths.kept);
        }
    }
    m_paths.view.databases = resolved(m_application + "/databases");
    m_root.place(m_paths.view.databases, databases, ProgramRoot::Access::Writable);
    m_paths.view.root = rootOptions();
    return true;
}

QStringList RehearsedDevice::rootOptions() const
{
    QStringList options = m_root.arguments();
    if (m_options.root != "/") {
        // These variables lead to libraries of this system.
        for (const char *variable : {"LD_LIBRARY_PATH", "LD_PRELOAD", "QT_PLUGIN_PATH"}) {
            options += {"--unsetenv", variable};
        }
    }
    return options;
}

/// Copies the database, or whatever else has its name.
bool RehearsedDevice::copyDatabase(const QString &entry)
{
    const QString copy = staged("databases") + '/' + databaseName;
    const QFileInfo file(entry);
    if (!m_options.database.isEmpty() && !file.exists()) {
        return fail("no-database", "there is no such file");
    }
    if (!file.exists() || file.isDir() || (file.isSymLink() && !file.isFile())) {
        copyWhatIsNoFile(entry, copy);
        return true;
    }
    if (!file.isFile()) {
        return fail("not-copied", "it is not a file");
    }
    // SQLite fails if something other than a file has the name of one of its files.
    const QString real = file.canonicalFilePath();
    for (const char *suffix : {"-journal", "-wal", "-shm"}) {
        copyWhatIsNoFile(real + suffix, copy + suffix);
    }
    WaitBudget budget(m_options.waitSeconds);
    const std::optional<DatabaseFailure> failure = copyRaw(real, copy, budget);
    if (failure) {
        RunRecord record;
        record.endWith(*failure, "copy-failed");
        return fail(record.reason, record.detail);
    }
    return true;
}
