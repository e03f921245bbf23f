#include "guard/run_log.h"

#include <QRegularExpression>

namespace runLog
{
namespace
{
const char *const lackOfRoom[] = {"disk is full", "disk I/O error", "out of memory"};

const QRegularExpression closing("\\b(to|from) version \\d");
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

bool isWhole(const QByteArray &text)
{
    return text.endsWith('\n');
}
} // namespace runLog
