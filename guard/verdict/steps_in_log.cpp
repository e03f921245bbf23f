#include "guard/verdict/steps_in_log.h"

#include <QRegularExpression>
#include <QString>

#include <algorithm>

namespace
{
// The steps of a run are between these lines.
const char *const openingLine = "*****Beginning database migration from version: ";
const char *const closingLine = "*****Updating version in DB to: ";

/// Enough to recognise any line of a step; a name in a database can have any length.
constexpr int bytesLookedAt = 4096;

/// No step leads to this version.
constexpr int oldestVersion = 1;

const QRegularExpression appliedAgain(
    "^Corruption detected: applying update to db for version (\\d+)");

const QRegularExpression success("\\bto version (\\d+) (was successful|completed successfully)");

/// Failure lines that name their version. On the way back, a line with "version 24" comes from the
/// step of version 25.
const QRegularExpression failureForward(
    "^(?=.*(fail|Error while)).*((update|updating|migration) ?to ?version ?(?<version>\\d+))",
    QRegularExpression::CaseInsensitiveOption);
const QRegularExpression failureBackward(
    "^(?=.*fail).*(revert(ing)? ?from ?version ?(?<version>\\d+))",
    QRegularExpression::CaseInsensitiveOption);
const QRegularExpression errorOnTheWayBack("^Error while reverting to version (\\d+)");

/// Failure lines without a version that only one step writes.
const QRegularExpression failureOf21Backward(
    "^Failed to (create preferredGpsSolutions|determine |insert preferredGpsSolutions)");
const QRegularExpression failureOf29(
    "^(Failed inserting data from|Could not rename table back to) ?"
    "reverseSenseSettings");

/// The toolkit's own lines: two for an operation that failed, the second with SQLite's words.
const char *const toolkitLine = "DatabaseMigrator::";
const QRegularExpression failureOfToolkit(
    "^DatabaseMigrator::.*fail", QRegularExpression::CaseInsensitiveOption);
const QRegularExpression failureAtColumn(
    "Failed to (?:drop|add) column named (?<column>\\S+) to (?<table>\\S+)|"
    "Failed to set column named (?<value>\\S+) to |"
    "Failed to drop table named (?<dropped>\\S+)");

/// The line with which a step forward ends.
const QRegularExpression closing("^(Database migration|Migration) to version \\d");

/// Lines of the repairs before the first step. All lines before them are of repairs too.
const QRegularExpression lineOfRepairs(
    "^(Integrity check (passed|FAILED)|"
    "Failure \\d while removing extraneous product config data)");

/// @return whether a step takes or brings back the object of the toolkit's failed operation
bool concerns(
    const QRegularExpressionMatch &failure, const VersionTable::Tables &taken,
    const VersionTable::Tables &takenByOpposite)
{
    const QByteArray table = folded(failure.captured("table").toUtf8());
    const QByteArray column = folded(failure.captured("column").toUtf8());
    if (!table.isEmpty()) {
        const TakenFromTable own = taken.value(table);
        const TakenFromTable opposite = takenByOpposite.value(table);
        return own.columnsDropped.contains(column) || own.columnsRenamed.contains(column) ||
               own.columnsRenamed.values().contains(column) ||
               opposite.columnsDropped.contains(column);
    }
    if (const QByteArray value = folded(failure.captured("value").toUtf8()); !value.isEmpty()) {
        return std::any_of(taken.begin(), taken.end(), [&](const TakenFromTable &own) {
            return own.values.contains(value) || own.columnsRenamed.values().contains(value);
        });
    }
    return taken.value(folded(failure.captured("dropped").toUtf8())).dropped;
}

class Reader
{
public:
    Reader(int from, int target, const VersionTable &versions)
        : m_from(from), m_target(target), m_lastClosed(from), m_versions(versions)
    {
    }

    StepsInLog read(const QByteArray &log)
    {
        bool begun = false;
        for (const QByteArray &line : log.split('\n')) {
            begun = begun || line.startsWith(openingLine);
            if (line.startsWith(closingLine)) {
                break;
            }
            if (begun && !line.startsWith(openingLine) && !line.isEmpty()) {
                m_lines << line;
                readLine(start(line));
            }
        }
        end();
        return m_steps;
    }

private:
    bool isForward() const { return m_target > m_from; }

    static QString start(const QByteArray &line)
    {
        return QString::fromUtf8(line.left(bytesLookedAt));
    }

    /// Gives the lines since the last step to a failed one.
    void giveLinesTo(int version)
    {
        m_steps.linesOfFailed[version] += m_lines;
        m_lines.clear();
    }

    /// Takes the toolkit's lines on what a version changes out of the lines since the last step.
    QByteArrayList takeLinesOn(int version)
    {
        QByteArrayList taken;
        QByteArrayList others;
        bool concernsVersion = false;
        for (const QByteArray &line : qAsConst(m_lines)) {
            const QRegularExpressionMatch failure = failureAtColumn.match(start(line));
            if (failure.hasMatch()) {
                concernsVersion = concerns(
                    failure,
                    m_versions.takenBy(version, Direction::Forward),
                    m_versions.takenBy(version, Direction::Backward));
            }
            concernsVersion = concernsVersion && line.startsWith(toolkitLine);
            (concernsVersion ? taken : others) << line;
        }
        m_lines = others;
        return taken;
    }

    /// Some steps forward fail without a line that names their version. The objects of the
    /// toolkit's failed operations show which lines are theirs.
    void giveLinesToSilent(int first, int last)
    {
        const int end = std::min(last, VersionTable::mostVersions);
        for (int version = first; version <= end && !m_lines.isEmpty(); ++version) {
            if (const QByteArrayList lines = takeLinesOn(version); !lines.isEmpty()) {
                m_steps.linesOfFailed.insert(version, lines);
            }
        }
    }

    /// Handles a line which shows that a step back failed. Of the lines before it, those of the
    /// toolkit on the same version are kept: nothing shows which step the others are from.
    void failBackward(int version)
    {
        const QByteArray line = m_lines.takeLast();
        m_lines = takeLinesOn(version) << line;
        giveLinesTo(version);
        m_steps.failed << version;
        m_lastBackward = version;
    }

    void fail29()
    {
        if (m_again == 29) {
            m_steps.failedAgain << 29;
        } else if (isForward()) {
            m_steps.failed << 29; // its last line follows
        } else {
            failBackward(29);
        }
    }

    void readLine(const QString &line)
    {
        if (lineOfRepairs.match(line).hasMatch()) {
            m_lines.clear();
        } else if (const auto match = appliedAgain.match(line); match.hasMatch()) {
            m_lines.clear();
            settlePending();
            m_again = match.captured(1).toInt();
            m_steps.reapplied << m_again;
        } else if (const auto succeeded = success.match(line); succeeded.hasMatch()) {
            close(succeeded.captured(1).toInt(), true, true);
        } else if (const auto failed = failureForward.match(line); failed.hasMatch()) {
            close(failed.captured("version").toInt(), false, closing.match(line).hasMatch());
        } else if (const auto reverted = failureBackward.match(line); reverted.hasMatch()) {
            failBackward(reverted.captured("version").toInt());
        } else if (const auto error = errorOnTheWayBack.match(line); error.hasMatch()) {
            failBackward(error.captured(1).toInt() + 1);
        } else if (failureOf21Backward.match(line).hasMatch()) {
            failBackward(21);
        } else if (failureOf29.match(line).hasMatch()) {
            fail29();
        } else if (failureOfToolkit.match(line).hasMatch()) {
            isForward() ? void(m_pending = true) : blameStepBackward(line);
        } else if (line.startsWith(toolkitLine)) {
            readSecondLine();
        }
    }

    /// Handles the second of the toolkit's two lines.
    void readSecondLine()
    {
        if (m_lastBackward != 0) {
            giveLinesTo(m_lastBackward);
        }
    }

    /// Handles a line with which a step forward says how it ended, or, without isEnd, that a part
    /// of it failed.
    void close(int version, bool succeeded, bool isEnd)
    {
        if (m_again != 0) {
            if (version == m_again) {
                if (!succeeded || m_pending) {
                    m_steps.failedAgain << version;
                }
                m_pending = false;
                if (isEnd) {
                    m_again = 0;
                    m_lines.clear();
                }
                return;
            }
            settlePending();
        }
        const bool isOfWalk = isForward() && version > m_from;
        if (!isOfWalk) {
            if (!succeeded) {
                m_steps.failedAgain << version;
            }
            m_lines.clear();
            return;
        }
        // The steps between the two ended without a line, as failed steps do.
        giveLinesToSilent(m_lastClosed + 1, version - 1);
        const bool othersFailed = version > m_lastClosed + 1;
        if (!succeeded || (m_pending && !othersFailed)) {
            m_steps.failed << version;
        }
        if (succeeded) {
            m_succeeded << version;
        }
        if (m_steps.failed.contains(version)) {
            giveLinesTo(version);
        }
        m_lines.clear();
        m_pending = false;
        m_lastClosed = std::max(m_lastClosed, version);
        m_steps.lastClosed = m_lastClosed;
    }

    /// Ends a version that was applied again and did not say how that ended.
    void settlePending()
    {
        if (m_pending && m_again != 0) {
            m_steps.failedAgain << m_again;
            m_pending = false;
        }
        if (m_again != 0) {
            takeLinesOn(m_again);
        }
        m_again = 0;
    }

    /// Most steps back have no failure line of their own. The object of the toolkit's failed
    /// operation shows the step.
    void blameStepBackward(const QString &line)
    {
        const QRegularExpressionMatch failure = failureAtColumn.match(line);
        if (!failure.hasMatch()) {
            readSecondLine();
            return;
        }
        QVector<int> candidates;
        for (int version = std::min(m_from, VersionTable::mostVersions);
             version > std::max(m_target, oldestVersion);
             --version) {
            if (concerns(
                    failure,
                    m_versions.takenBy(version, Direction::Backward),
                    m_versions.takenBy(version, Direction::Forward))) {
                candidates << version;
            }
        }
        const bool isOfAgain =
            m_again != 0 &&
            (candidates.isEmpty() || concerns(
                                         failure,
                                         m_versions.takenBy(m_again, Direction::Forward),
                                         m_versions.takenBy(m_again, Direction::Backward)));
        m_lastBackward = 0;
        if (isOfAgain) {
            m_pending = true;
        } else if (candidates.size() == 1) {
            settlePending();
            failBackward(candidates.first());
        } else {
            m_steps.unknownFailed = true;
        }
    }

    void end()
    {
        const bool pendingInWalk = m_pending && m_again == 0;
        settlePending();
        const int last = std::min(
            {m_target, std::max(m_versions.newest(), m_lastClosed), VersionTable::mostVersions});
        giveLinesToSilent(m_lastClosed + 1, last);
        bool silent = false;
        for (int version = std::max(m_from, oldestVersion) + 1; version <= last; ++version) {
            if (!m_succeeded.contains(version)) {
                const bool isSilent = version > m_lastClosed;
                silent = silent || isSilent;
                m_steps.failed << version;
                // Nothing shows which of the last steps the other lines are from.
                if (isSilent && !m_lines.isEmpty() && !m_steps.linesOfFailed.contains(version)) {
                    m_steps.linesOfFailed.insert(version, m_lines);
                }
            }
        }
        m_steps.unknownFailed = m_steps.unknownFailed || (pendingInWalk && !silent);
    }

    int m_from;
    int m_target;
    int m_again = 0; ///< the version that is being applied again, 0 while none is
    int m_lastClosed;
    int m_lastBackward = 0; ///< the step back that failed with the last line, 0 for none
    bool m_pending = false; ///< the toolkit failed in a step that has not ended yet
    QSet<int> m_succeeded;
    QByteArrayList m_lines; ///< of the step that has not ended yet
    const VersionTable &m_versions;
    StepsInLog m_steps;
};
} // namespace

bool tellsOfRun(const QByteArray &log)
{
    return log.startsWith(openingLine) || log.contains(QByteArray("\n") + openingLine);
}

StepsInLog readSteps(const QByteArray &log, int from, int target, const VersionTable &versions)
{
    return Reader(from, target, versions).read(log);
}
