#include "guard/run_log.h"

#include <QByteArrayList>
#include <QRegularExpression>
#include <QSet>

#include <algorithm>

namespace runLog
{
namespace
{
const char *const lackOfRoom[] = {"disk is full", "disk I/O error", "out of memory"};

/// What a step, or the toolkit for it, says when it fails. Repairs, reference scripts and the
/// renaming of duplicates have failures as well; they are no step's.
const QRegularExpression failureOfAStep(
    "^(?=.*fail).*(version ?[0-9]|(To|From)Version[0-9]|^DatabaseMigrator::)|"
    "^Failed (inserting|to (create|determine|insert)) |^Could not rename table back",
    QRegularExpression::CaseInsensitiveOption);

const QRegularExpression success("\\bto version (\\d+) (was successful|completed successfully)");

const QRegularExpression closing("\\b(to|from) version \\d");

/// Between these lines are the steps of a run.
const char *const openingLine = "*****Beginning database migration from version: ";
const char *const closingLine = "*****Updating version in DB to: ";

bool isFailureOfAStep(const QByteArray &line)
{
    return failureOfAStep.match(QString::fromUtf8(line)).hasMatch();
}
} // namespace

bool tellsOfLackOfRoom(const QByteArray &line)
{
    for (const char *words : lackOfRoom) {
        if (line.contains(words)) {
            return true;
        }
    }
    return false;
}

bool closesAStep(const QByteArray &line)
{
    return !line.startsWith('*') && closing.match(QString::fromUtf8(line)).hasMatch();
}

bool hasFailedStep(const QByteArray &text, int from, int to)
{
    QSet<int> succeeded;
    bool begun = false;
    for (const QByteArray &line : text.split('\n')) {
        begun = begun || line.startsWith(openingLine);
        if (line.startsWith(closingLine)) {
            break;
        }
        if (begun && isFailureOfAStep(line)) {
            return true;
        }
        const QRegularExpressionMatch match = success.match(QString::fromUtf8(line));
        if (match.hasMatch()) {
            succeeded << match.captured(1).toInt();
        }
    }
    const int first = 2;
    for (int version = std::max(from + 1, first); version <= to; ++version) {
        if (!succeeded.contains(version)) {
            return true;
        }
    }
    return false;
}

bool isWhole(const QByteArray &text)
{
    return text.endsWith('\n');
}
} // namespace runLog
