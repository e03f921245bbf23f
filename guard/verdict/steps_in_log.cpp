#include "guard/verdict/steps_in_log.h"

#include <QRegularExpression>
#include <QString>

#include <algorithm>

namespace
{
// Between these lines are the steps of a run.
const char *const openingLine = "*****Beginning database migration from version: ";
const char *const closingLine = "*****Updating version in DB to: ";

/// No line of a step's needs more to be told; a name in a database can have any length.
constexpr int bytesLookedAt = 4096;

/// There is no step to it.
constexpr int oldestVersion = 1;

const QRegularExpression appliedAgain(
    "^Corruption detected: applying update to db for version (\\d+)");

const QRegularExpression success("\\bto version (\\d+) (was successful|completed successfully)");

/// Lines of failures that name their version. On the way back to 24 it is 25's step that speaks.
const QRegularExpression failureForward(
    "^(?=.*(fail|Error while)).*((update|updating|migration) ?to ?version ?(?<version>\\d+))",
    QRegularExpression::CaseInsensitiveOption);
const QRegularExpression failureBackward(
    "^(?=.*fail).*(revert(ing)? ?from ?version ?(?<version>\\d+))",
    QRegularExpression::CaseInsensitiveOption);
const QRegularExpression errorOnTheWayBack("^Error while reverting to version (\\d+)");

/// Lines of failures without a version that only one step writes.
const QRegularExpression failureOf21Backward(
    "^Failed to (create preferredGpsSolutions|determine |insert preferredGpsSolutions)");
const QRegularExpression failureOf29(
    "^(Failed inserting data from|Could not rename table back to) ?"
    "reverseSenseSettings");

/// The toolkit's own lines.
const QRegularExpression failureOfToolkit(
    "^DatabaseMigrator::.*fail", QRegularExpression::CaseInsensitiveOption);
const QRegularExpression failureAtColumn("Failed to drop column named (\\S+) to (\\S+)");
const QRegularExpression failureAtTable("Failed to drop table named (\\S+)");

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
            if (begun) {
                readLine(QString::fromUtf8(line.left(bytesLookedAt)));
            }
        }
        end();
        return m_steps;
    }

private:
    bool isForward() const { return m_target > m_from; }

    void readLine(const QString &line)
    {
        if (const auto match = appliedAgain.match(line); match.hasMatch()) {
            settlePending();
            m_again = match.captured(1).toInt();
            m_steps.reapplied << m_again;
        } else if (const auto succeeded = success.match(line); succeeded.hasMatch()) {
            close(succeeded.captured(1).toInt(), true);
        } else if (const auto failed = failureForward.match(line); failed.hasMatch()) {
            close(failed.captured("version").toInt(), false);
        } else if (const auto reverted = failureBackward.match(line); reverted.hasMatch()) {
            m_steps.failed << reverted.captured("version").toInt();
        } else if (const auto error = errorOnTheWayBack.match(line); error.hasMatch()) {
            m_steps.failed << error.captured(1).toInt() + 1;
        } else if (failureOf21Backward.match(line).hasMatch()) {
            m_steps.failed << 21;
        } else if (failureOf29.match(line).hasMatch()) {
            m_again == 29 ? m_steps.failedAgain << 29 : m_steps.failed << 29;
        } else if (failureOfToolkit.match(line).hasMatch()) {
            if (m_again != 0 || isForward()) {
                m_pending = true;
            } else {
                blameStepBackward(line);
            }
        }
    }

    /// A step forward has said how it ended, or a part of it that it failed.
    void close(int version, bool succeeded)
    {
        if (m_again != 0) {
            if (version == m_again) {
                if (!succeeded || m_pending) {
                    m_steps.failedAgain << version;
                }
                m_pending = false;
                m_again = succeeded ? 0 : m_again;
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
        // Steps between the two have ended without a line, as they do when they fail.
        const bool othersFailed = version > m_lastClosed + 1;
        if (!succeeded || (m_pending && !othersFailed)) {
            m_steps.failed << version;
        }
        if (succeeded) {
            m_succeeded << version;
        }
        m_pending = false;
        m_lastClosed = std::max(m_lastClosed, version);
    }

    void settlePending()
    {
        if (m_pending && m_again != 0) {
            m_steps.failedAgain << m_again;
            m_pending = false;
        }
        m_again = 0;
    }

    /// On the way back most steps have no line of their own: what could not be dropped tells.
    void blameStepBackward(const QString &line)
    {
        const auto column = failureAtColumn.match(line);
        const auto table = failureAtTable.match(line);
        if (!column.hasMatch() && !table.hasMatch()) {
            return; // the second of two lines, or of a step that says more
        }
        const QByteArray name =
            folded((column.hasMatch() ? column.captured(2) : table.captured(1)).toUtf8());
        const QByteArray columnName = folded(column.captured(1).toUtf8());
        QVector<int> candidates;
        for (int version = m_from; version > std::max(m_target, oldestVersion); --version) {
            const VersionTable::Tables &taken = m_versions.takenBy(version, Direction::Backward);
            const auto found = taken.constFind(name);
            if (found == taken.constEnd()) {
                continue;
            }
            const bool takesColumn = found->columnsDropped.contains(columnName) ||
                                     found->columnsRenamed.contains(columnName);
            if (column.hasMatch() ? takesColumn : found->dropped) {
                candidates << version;
            }
        }
        if (candidates.size() == 1) {
            m_steps.failed << candidates.first();
        } else {
            m_steps.unknownFailed = true;
        }
    }

    void end()
    {
        const bool pendingInWalk = m_pending && m_again == 0;
        settlePending();
        const int last = std::min(m_target, std::max(m_versions.newest(), m_lastClosed));
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
    bool m_pending = false; ///< the toolkit has failed in a step that has not ended
    QSet<int> m_succeeded;
    const VersionTable &m_versions;
    StepsInLog m_steps;
};
} // namespace

StepsInLog readSteps(const QByteArray &log, int from, int target, const VersionTable &versions)
{
    return Reader(from, target, versions).read(log);
}
