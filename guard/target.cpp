#include "guard/target.h"
#include "guard/limits.h"

#include <QFile>

#include <algorithm>

namespace
{
/// A file that is longer than this holds no version.
const qint64 longestFile = 4096;

bool isDigit(char character)
{
    return character >= '0' && character <= '9';
}
} // namespace

std::optional<int> parseTarget(const QByteArray &text)
{
    const QByteArray digits = text.trimmed();
    if (digits.isEmpty() || !std::all_of(digits.begin(), digits.end(), isDigit)) {
        return std::nullopt;
    }
    bool fits = false;
    const int version = digits.toInt(&fits);
    if (!fits || version < 1 || version > limits::largestVersion) {
        return std::nullopt;
    }
    return version;
}

std::optional<int> readTarget(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return std::nullopt;
    }
    const QByteArray content = file.read(longestFile + 1);
    return content.size() > longestFile ? std::nullopt : parseTarget(content);
}
