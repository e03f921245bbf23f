#include "guard/target.h"
#include "guard/limits.h"
#include "guard/regular_file.h"

#include <algorithm>

namespace
{
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
    const std::optional<QByteArray> content = readSmallFile(path, limits::largestTarget);
    return content ? parseTarget(*content) : std::nullopt;
}
