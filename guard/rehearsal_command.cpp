#include "guard/rehearsal_command.h"
#include "guard/available_memory.h"
#include "guard/bubblewrap.h"
#include "guard/child_process.h"
#include "guard/inner_guard.h"
#include "guard/limits.h"
#include "guard/messages.h"
#include "guard/rehearsal.h"
#include "guard/rehearsal_outputs.h"
#include "guard/rehearsal_report.h"
#include "guard/sizing.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <vector>

namespace
{
/// Where the inner guard finds the file for the result.
const char *const resultPlace = "/.migration-guard-result";

/// The exit status of an inner guard that had too little room. Only the outer guard sees it.
constexpr int placeTooSmall = 5;

int exitStatus(Status status)
{
    return static_cast<int>(status);
}

QString absolute(const QString &path)
{
    return path.isEmpty() ? path : QFileInfo(path).absoluteFilePath();
}

/// @return the database that this process is for, empty for this device's own
QString databaseOf(const CommandLine &line)
{
    const QStringList &databases = line.rehearsal.databases;
    return databases.isEmpty() ? QString()
                               : absolute(databases.value(std::max(line.rehearsal.only, 0)));
}

RehearsalOptions optionsOf(const CommandLine &line, const QString &application, int target)
{
    const RehearsalLine &asked = line.rehearsal;
    RehearsalOptions options;
    options.target = target;
    options.strict = line.strict;
    options.mend = line.mend;
    options.acceptedCodes = line.acceptedCodes;
    options.place = innerGuard::memory;
    options.resultFile = asked.resultFile.isEmpty() ? QString() : QString(resultPlace);
    RehearsedDeviceOptions &device = options.device;
    device.application = application;
    device.root = asked.root.isEmpty() ? QString("/") : QFileInfo(asked.root).canonicalFilePath();
    device.database = databaseOf(line);
    device.platform = asked.platform;
    device.softwareVersion = asked.softwareVersion;
    device.registration = absolute(asked.registration);
    device.referenceData = absolute(asked.referenceData);
    device.program = absolute(asked.program);
    device.waitSeconds = line.waitSeconds;
    return options;
}

/// Prints to standard output. `ferror` tells if that ever failed.
void print(const QByteArray &text)
{
    std::fwrite(text.constData(), 1, static_cast<size_t>(text.size()), stdout);
    std::fflush(stdout);
}

/// Tells that an output is missing or cut that the caller has asked for.
/// @return the exit status
int cannotBeWritten(const QString &file, int status)
{
    tell("cannot be written: " + file);
    return std::max(status, exitStatus(Status::NothingChanged));
}

/// @return the exit status
int report(const CommandLine &line, const Rehearsal &rehearsal)
{
    for (const QString &text : rehearsalReport::lines(rehearsal, line.rehearsal.only >= 0)) {
        tell(text);
    }
    if (line.json) {
        const QJsonObject json = rehearsalReport::toJson(rehearsal, line.rehearsal.withRows);
        print(QJsonDocument(json).toJson(QJsonDocument::Compact) + '\n');
    }
    const int status = exitStatus(rehearsal.record.status);
    return rehearsal.resultIsLost ? cannotBeWritten(line.rehearsal.resultFile, status) : status;
}

/// Reports a rehearsal that could not be made.
int reportFailure(
    const CommandLine &line, const QString &application, int target, const QString &reason,
    const QString &detail = QString())
{
    Rehearsal rehearsal;
    const QString named = databaseOf(line);
    rehearsal.database = named.isEmpty() ? DevicePaths(application).databaseEntry : named;
    rehearsal.record.target = target;
    rehearsal.record.endUnchanged(reason, detail);
    return report(line, rehearsal);
}

/// @return false only when the database's header shows that it has no write-ahead log
bool mayHaveWriteAheadLog(const QString &database)
{
    // O_NOATIME: the system must not record an access time.
    const Descriptor file(open(
        QFile::encodeName(database).constData(),
        O_RDONLY | O_NOATIME | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    const int formatAt = 18;
    char format = 0;
    return !file.isOpen() || pread(file.get(), &format, 1, formatAt) != 1 || format != 1;
}

/// @param mends whether the copy is mended
/// @return the most bytes that a rehearsal takes
qint64 neededRoom(const QString &database, bool mends)
{
    sizing::Database size;
    size.fileBytes = QFileInfo(database).size();
    size.bytes = size.fileBytes + QFileInfo(database + "-wal").size() +
                 QFileInfo(database + "-journal").size();
    size.hasWriteAheadLog = mayHaveWriteAheadLog(database);
    return limits::rehearsedCopies * size.bytes + sizing::roomForCommit(size, 2 * size.bytes) +
           sizing::stagingRoom(size, mends) + limits::mebibyte;
}

/// How an inner guard ended.
enum class InnerEnd { Reported, LackedRoom, NotStarted };

/// Tries to rehearse in one place.
/// @param[out] status set when the result is Reported
InnerEnd rehearseIn(const innerGuard::Place &place, int *status)
{
    const QStringList arguments =
        QStringList{QString("--") + insideOption, "place"} + QCoreApplication::arguments().mid(1);
    const std::optional<int> end = innerGuard::runReadOnly(place, arguments);
    if (!end) {
        return InnerEnd::NotStarted;
    }
    *status = *end;
    return *end == placeTooSmall ? InnerEnd::LackedRoom : InnerEnd::Reported;
}

/// The memory is shared by all jobs: each looks at what is free, and uses its own part only later.
/// @return how many bytes this process may count on
qint64 shareOfMemory(const CommandLine &line)
{
    const int databases = std::max(line.rehearsal.databases.size(), 1);
    return availableMemory() / std::min(line.rehearsal.jobs, databases);
}

/// Tries places in memory, then one on the disk.
InnerEnd rehearseSomewhere(
    const CommandLine &line, qint64 room, const QStringList &binds, int *status)
{
    innerGuard::Place place;
    place.binds = binds;
    InnerEnd end = InnerEnd::LackedRoom;
    if (line.stagingDirectory.isEmpty()) {
        // A write-ahead log can have grown meanwhile.
        for (const qint64 size : {room, limits::rehearsalRoomFactor * room}) {
            place.memorySize = size;
            if (end == InnerEnd::LackedRoom &&
                shareOfMemory(line) >= size + limits::memoryForProcesses) {
                end = rehearseIn(place, status);
            }
        }
        // Bubblewrap may be too old to set the size of a file system in memory.
        if (end == InnerEnd::Reported) {
            return end;
        }
    }
    const QString parent =
        line.stagingDirectory.isEmpty() ? QDir::tempPath() : absolute(line.stagingDirectory);
    if (sizing::freeRoom(parent) < room) {
        return InnerEnd::LackedRoom;
    }
    const QTemporaryDir directory(parent + "/migration-guard.rehearsal.XXXXXX");
    place.memorySize.reset();
    place.directory = directory.path();
    return directory.isValid() ? rehearseIn(place, status) : InnerEnd::LackedRoom;
}

int rehearseOne(const CommandLine &line, const QString &application, int target)
{
    const RehearsalLine &asked = line.rehearsal;
    if (bubblewrapPath().isEmpty()) {
        return reportFailure(line, application, target, "no-bubblewrap");
    }
    const QString named = databaseOf(line);
    const DevicePaths device(application);
    const qint64 room = neededRoom(
        named.isEmpty() ? device.database : QFileInfo(named).canonicalFilePath(), line.mend);
    std::unique_ptr<OutputFile> result;
    QStringList binds;
    if (!asked.resultFile.isEmpty()) {
        result = std::make_unique<OutputFile>(absolute(asked.resultFile));
        binds = QStringList{"--bind", result->unfinished(), resultPlace};
        if (!result->isOpen()) {
            tell("cannot be written: " + asked.resultFile);
            return exitStatus(Status::WrongCall);
        }
    }
    int status = 0;
    switch (rehearseSomewhere(line, room, binds, &status)) {
    case InnerEnd::LackedRoom:
        return reportFailure(line, application, target, "no-room", "for the copies");
    case InnerEnd::NotStarted:
        return reportFailure(line, application, target, "no-namespaces");
    case InnerEnd::Reported:
        break;
    }
    const bool isKept = !result || QFileInfo(result->unfinished()).size() == 0 || result->finish();
    return isKept ? status : cannotBeWritten(asked.resultFile, status);
}

int rehearseAndPrint(const CommandLine &line, const QString &application, int target)
{
    std::optional<HeldOutput> held(std::in_place);
    const int status = rehearseOne(line, application, target);
    const QByteArray report = held->content();
    held.reset();
    print(report);
    return status;
}

/// A process that rehearses one of several databases.
class Job
{
public:
    Job(const CommandLine &line, int number) : m_line(line)
    {
        m_line.rehearsal.only = number;
        const QStringList arguments =
            QStringList{QString("--") + onlyOption, QString::number(number)} +
            QCoreApplication::arguments().mid(1);
        ChildProcess::Options options;
        options.diesWithParent = true;
        options.output = m_output.descriptor();
        options.errors = m_errors.descriptor();
        m_process = std::make_unique<ChildProcess>();
        m_isStarted = m_process->start(QCoreApplication::applicationFilePath(), arguments, options);
    }

    bool hasEnded() { return waitForEnd(0); }
    bool waitForEnd(int milliseconds)
    {
        if (m_process && m_process->waitForEnd(milliseconds)) {
            keepWhatItLeaves();
        }
        return !m_process;
    }

    /// Passes on the output of the process.
    /// @return its exit status
    int finish(const QString &application, int target)
    {
        std::fwrite(m_errorText.constData(), 1, size_t(m_errorText.size()), stderr);
        if (!m_status) {
            return reportFailure(
                m_line, application, target, "program-broken", "the guard was ended");
        }
        print(m_outputText);
        return *m_status;
    }

private:
    /// It may have to wait for its turn: until then it keeps no descriptor.
    void keepWhatItLeaves()
    {
        if (m_isStarted && !m_process->wasKilled() &&
            QList<int>{0, 2, 3, 4}.contains(m_process->exitCode())) {
            m_status = m_process->exitCode();
        }
        m_outputText = m_output.content();
        m_errorText = m_errors.content();
        m_output.close();
        m_errors.close();
        m_process.reset();
    }

    CommandLine m_line;
    HeldText m_output;
    HeldText m_errors;
    std::unique_ptr<ChildProcess> m_process;
    bool m_isStarted = false;
    std::optional<int> m_status; ///< nothing when it was ended
    QByteArray m_outputText;
    QByteArray m_errorText;
};

/// Only on a terminal: a line that the next one overwrites.
/// @param ended how many databases are rehearsed
void showProgress(int ended, int all)
{
    if (isatty(STDERR_FILENO) != 0) {
        std::fprintf(stderr, "%d of %d\r", ended, all);
        std::fflush(stderr);
    }
}

int rehearseSeveral(const CommandLine &line, const QString &application, int target)
{
    const int all = line.rehearsal.databases.size();
    std::vector<std::unique_ptr<Job>> jobs;
    int next = 0;
    int worst = 0;
    bool isWrongCall = false;
    // Results are reported in the order of the call, whichever job ends first.
    for (int reported = 0; reported < all; ++reported) {
        const int notShown = -1;
        int shown = notShown;
        do {
            int running = static_cast<int>(
                std::count_if(jobs.begin(), jobs.end(), [](const std::unique_ptr<Job> &job) {
                    return job && !job->hasEnded();
                }));
            for (; next < all && running < line.rehearsal.jobs; ++running) {
                jobs.push_back(std::make_unique<Job>(line, next++));
            }
            const int ended = next - running;
            if (ended != shown) {
                showProgress(ended, all);
                shown = ended;
            }
        } while (!jobs[size_t(reported)]->waitForEnd(limits::watchInterval));
        const int status = jobs[size_t(reported)]->finish(application, target);
        jobs[size_t(reported)].reset();
        isWrongCall = isWrongCall || status == exitStatus(Status::WrongCall);
        worst = std::max(worst, status);
    }
    return isWrongCall ? exitStatus(Status::WrongCall) : worst;
}
} // namespace

int rehearseAsAsked(const CommandLine &line, const QString &application, int target)
{
    const RehearsalLine &asked = line.rehearsal;
    if (!line.inside.isEmpty()) {
        const Rehearsal rehearsal = rehearse(optionsOf(line, application, target));
        if (rehearsal.isWrongCall) {
            tell(rehearsal.record.detail);
            return exitStatus(Status::WrongCall);
        }
        return rehearsal.lackedRoom ? placeTooSmall : report(line, rehearsal);
    }
    if (!asked.root.isEmpty() && !QFileInfo(asked.root).isDir()) {
        tell("no directory: " + asked.root);
        return exitStatus(Status::WrongCall);
    }
    const bool isPart = asked.only >= 0;
    const QString wrongOutput = isPart ? QString() : errorOfOutputs(line, application);
    if (!wrongOutput.isEmpty()) {
        tell(wrongOutput);
        return exitStatus(Status::WrongCall);
    }
    std::unique_ptr<OutputFile> json;
    if (!asked.jsonFile.isEmpty() && !isPart) {
        json = std::make_unique<OutputFile>(absolute(asked.jsonFile));
        if (!json->isOpen() || !json->takesStandardOutput()) {
            tell("cannot be written: " + asked.jsonFile);
            return exitStatus(Status::WrongCall);
        }
    }
    const int status = asked.databases.size() > 1 && !isPart
                           ? rehearseSeveral(line, application, target)
                           : rehearseAndPrint(line, application, target);
    if (status == exitStatus(Status::WrongCall)) {
        return status;
    }
    if (!json) {
        return std::ferror(stdout) == 0 ? status : cannotBeWritten("standard output", status);
    }
    const int lines = std::max(asked.databases.size(), 1);
    const bool isKept = json->hasLines(lines) && json->finish();
    return isKept ? status : cannotBeWritten(asked.jsonFile, status);
}
