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

/// The toolkit's own lines.
const QRegularExpression failureOfToolkit(
    "^DatabaseMigrator::.*fail", QRegularExpression::CaseInsensitiveOption);
const QRegularExpression failureAtColumn(
    "Failed to (?:drop|add) column named (?<column>\\S+) to (?<table>\\S+)|"
    "Failed to set column named (?<value>\\S+) to |"
    "Failed to drop table named (?<dropped>\\S+)");

/// The line with which a step forward ends.
const QRegularExpression closing("^(Database migration|Migration) to version \\d");

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
            if (begun && !line.startsWith(openingLine)) {
                const QSet<int> failedBefore = m_steps.failed;
                m_lines << line;
                readLine(QString::fromUtf8(line.left(bytesLookedAt)));
                keepLines(m_steps.failed - failedBefore, line);
            }
        }
        const QSet<int> failedBefore = m_steps.failed;
        end();
        keepLines(m_steps.failed - failedBefore, {});
        return m_steps;
    }

private:
    bool isForward() const { return m_target > m_from; }

    /// Keeps the lines since the last step for the versions that this line shows as failed.
    void keepLines(const QSet<int> &failed, const QByteArray &line)
    {
        for (const int version : failed) {
            m_steps.linesOfFailed.insert(version, m_lines);
        }
        const bool endsStep = closing.match(QString::fromUtf8(line.left(bytesLookedAt))).hasMatch();
        if (endsStep || !failed.isEmpty()) {
            m_lines.clear();
        }
    }

    void readLine(const QString &line)
    {
        if (const auto match = appliedAgain.match(line); match.hasMatch()) {
            settlePending();
            m_again = match.captured(1).toInt();
            m_steps.reapplied << m_again;
        } else if (const auto succeeded = success.match(line); succeeded.hasMatch()) {
            close(succeeded.captured(1).toInt(), true, true);
        } else if (const auto failed = failureForward.match(line); failed.hasMatch()) {
            close(failed.captured("version").toInt(), false, closing.match(line).hasMatch());
        } else if (const auto reverted = failureBackward.match(line); reverted.hasMatch()) {
            m_steps.failed << reverted.captured("version").toInt();
        } else if (const auto error = errorOnTheWayBack.match(line); error.hasMatch()) {
            m_steps.failed << error.captured(1).toInt() + 1;
        } else if (failureOf21Backward.match(line).hasMatch()) {
            m_steps.failed << 21;
        } else if (failureOf29.match(line).hasMatch()) {
            m_again == 29 ? m_steps.failedAgain << 29 : m_steps.failed << 29;
        } else if (failureOfToolkit.match(line).hasMatch()) {
            isForward() ? void(m_pending = true) : blameStepBackward(line);
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
                m_again = isEnd ? 0 : m_again;
                return;
            }
            settlePending();
        }
        const bool isOfWalk = isForward() && version > m_from;
        if (!isOfWalk) {
            if (!succeeded) {
                m_steps.failedAgain << version;
            }
            return;
        }
        // The steps between the two ended without a line, as failed steps do.
        const bool othersFailed = version > m_lastClosed + 1;
        if (!succeeded || (m_pending && !othersFailed)) {
            m_steps.failed << version;
        }
        if (succeeded) {
            m_succeeded << version;
        }
        m_pending = false;
        m_lastClosed = std::max(m_lastClosed, version);
        m_steps.lastClosed = m_lastClosed;
    }

    void settlePending()
    {
        if (m_pending && m_again != 0) {
            m_steps.failedAgain << m_again;
            m_pending = false;
        }
        m_again = 0;
    }

    /// Most steps back have no failure line of their own. The object of the toolkit's failed
    /// operation shows the step.
    void blameStepBackward(const QString &line)
    {
        const QRegularExpressionMatch failure = failureAtColumn.match(line);
        if (!failure.hasMatch()) {
            return; // the second of the toolkit's two lines
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
        if (isOfAgain) {
            m_pending = true;
        } else if (candidates.size() == 1) {
            settlePending();
            m_steps.failed << candidates.first();
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
        bool silent = false;
        for (int version = std::max(m_from, oldestVersion) + 1; version <= last; ++version) {
            if (!m_succeeded.contains(version)) {
                silent = silent || version > m_lastClosed;
                m_steps.failed << version;
            }
        }
        m_steps.unknownFailed = m_steps.unknownFailed || (pendingInWalk && !silent);
    }

    int m_from;
    int m_target;
    int m_again = 0; ///< the version that is being applied again, 0 while none is
    int m_lastClosed;
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
