#include "guard/available_memory.h"
#include "guard/limits.h"

#include <QFile>

#include <algorithm>
#include <limits>
#include <optional>

namespace
{
const qint64 unlimited = std::numeric_limits<qint64>::max();

QByteArray content(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// @return the number in a file; nothing for any other text, such as "max"
std::optional<qint64> number(const QString &path)
{
    bool valid = false;
    const qint64 value = content(path).trimmed().toLongLong(&valid);
    return valid ? std::optional<qint64>(value) : std::nullopt;
}

/// @return the number after a name at the beginning of a line
qint64 valueAfter(const QByteArray &text, const QByteArray &name)
{
    for (const QByteArray &line : text.split('\n')) {
        if (line.startsWith(name)) {
            return line.mid(name.size()).simplified().split(' ').first().toLongLong();
        }
    }
    return 0;
}

/// The bytes that a group has left. Its file cache counts as free; files in memory do not.
qint64 leftInGroup(const QString &group, const QString &limitFile, const QString &usageFile)
{
    const std::optional<qint64> limit = number(group + limitFile);
    if (!limit) {
        return unlimited;
    }
    const QByteArray statistics = "\n" + content(group + "/memory.stat");
    const qint64 fileCache =
        valueAfter(statistics, "inactive_file ") + valueAfter(statistics, "active_file ");
    const qint64 used = number(group + usageFile).value_or(0);
    return std::max<qint64>(0, *limit - std::max<qint64>(0, used - fileCache));
}

/// The least that a group, or any group above it, has left.
qint64 leftInGroups(
    const QString &hierarchy, QString group, const QString &limitFile, const QString &usageFile)
{
    qint64 left = leftInGroup(hierarchy, limitFile, usageFile);
    while (group.size() > 1) {
        left = std::min(left, leftInGroup(hierarchy + group, limitFile, usageFile));
        group.truncate(group.lastIndexOf('/'));
    }
    return left;
}
} // namespace

qint64 availableMemory(const QString &root)
{
    const QByteArray system = content(root + "/proc/meminfo");
    qint64 available = valueAfter(system, "MemAvailable:") * limits::kibibyte;

    const QString groups = root + "/sys/fs/cgroup";
    for (const QByteArray &line : content(root + "/proc/self/cgroup").split('\n')) {
        // A line: number of the hierarchy, its controllers, the group. Version 2 names no
        // controller.
        const QList<QByteArray> fields = line.split(':');
        if (fields.size() < 3) {
            continue;
        }
        const QString group = QFile::decodeName(line.mid(fields[0].size() + fields[1].size() + 2));
        if (fields[1].isEmpty()) {
            for (const char *hierarchy : {"", "/unified"}) {
                available = std::min(
                    available,
                    leftInGroups(groups + hierarchy, group, "/memory.max", "/memory.current"));
            }
        } else if (fields[1].split(',').contains("memory")) {
            available = std::min(
                available,
                leftInGroups(
                    groups + "/memory", group, "/memory.limit_in_bytes", "/memory.usage_in_bytes"));
        }
    }
    return available;
}
