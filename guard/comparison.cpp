#include "guard/comparison.h"

#include "guard/btree.h"
#include "guard/database_file.h"
#include "guard/stored_schema.h"
#include "guard/value_comparison.h"

#include <QFileInfo>
#include <QHash>
#include <QPair>
#include <QSet>

#include <algorithm>
#include <cstring>

namespace
{
// Offsets in the header of a database file.
constexpr int writeVersionOffset = 18;
constexpr int readVersionOffset = 19;
constexpr int reservedBytesOffset = 20;
constexpr int defaultCacheSizeOffset = 48;
constexpr int largestRootPageOffset = 52;
constexpr int encodingOffset = 56;
constexpr int userVersionOffset = 60;
constexpr int incrementalVacuumOffset = 64;
constexpr int applicationIdOffset = 68;

/// Bytes of each file that are read at a time. A multiple of every page size.
constexpr int bytesReadAtOnce = 256 * 1024;

/// @return 0 without auto_vacuum, 1 with it, 2 when it is incremental
int autoVacuum(const DatabaseFile &file)
{
    if (file.headerNumber(largestRootPageOffset) == 0) {
        return 0;
    }
    return file.headerNumber(incrementalVacuumOffset) == 0 ? 1 : 2;
}

QStringList differentSettings(const DatabaseFile &before, const DatabaseFile &after)
{
    const auto differAt = [&](int offset) {
        return before.headerNumber(offset) != after.headerNumber(offset);
    };
    const auto byteDiffersAt = [&](int offset) {
        return before.header()[offset] != after.header()[offset];
    };
    const QVector<QPair<bool, QString>> settings = {
        {before.pageSize() != after.pageSize(), "page_size"},
        {byteDiffersAt(reservedBytesOffset), "reserved_bytes"},
        {byteDiffersAt(writeVersionOffset) || byteDiffersAt(readVersionOffset), "journal_mode"},
        {differAt(encodingOffset), "encoding"},
        {autoVacuum(before) != autoVacuum(after), "auto_vacuum"},
        {differAt(userVersionOffset), "user_version"},
        {differAt(applicationIdOffset), "application_id"},
        {differAt(defaultCacheSizeOffset), "default_cache_size"}};
    QStringList names;
    for (const auto &[differs, name] : settings) {
        if (differs) {
            names << name;
        }
    }
    return names;
}

/// What one reading of both files tells of their pages: by page number, up to the last page of the
/// longer file.
struct ComparedPages {
    std::vector<bool> differ; ///< true when the page differs or only one file has it
    std::vector<bool> linked; ///< false when the page of the file before leads to no other page
};

ComparedPages comparePages(const DatabaseFile &before, const DatabaseFile &after)
{
    const size_t all = std::max(before.pageCount(), after.pageCount());
    ComparedPages compared = {std::vector<bool>(all + 1, true), std::vector<bool>(all + 1, true)};
    compared.differ[0] = false;
    const int pageSize = before.pageSize();
    if (pageSize != after.pageSize()) {
        return compared;
    }
    const quint32 common = std::min(before.pageCount(), after.pageCount());
    const quint32 pagesAtOnce = static_cast<quint32>(bytesReadAtOnce / pageSize);
    QByteArray beforeBytes(bytesReadAtOnce, Qt::Uninitialized);
    QByteArray afterBytes(bytesReadAtOnce, Qt::Uninitialized);
    BTreePage page;
    for (quint32 first = 1; first <= common; first += pagesAtOnce) {
        const int pages = static_cast<int>(std::min(pagesAtOnce, common - first + 1));
        if (!before.read(first, beforeBytes.data(), pages * pageSize) ||
            !after.read(first, afterBytes.data(), pages * pageSize)) {
            return compared;
        }
        for (int index = 0; index < pages; ++index) {
            const quint32 number = first + static_cast<quint32>(index);
            const char *bytes = beforeBytes.constData() + index * pageSize;
            compared.differ[number] = std::memcmp(
                                          bytes,
                                          afterBytes.constData() + index * pageSize,
                                          static_cast<size_t>(pageSize)) != 0;
            page.view(before, number, bytes);
            compared.linked[number] = page.mayHaveLinks();
        }
    }
    return compared;
}

/// Compares two records piece by piece; their pieces may have different sizes. Damage is not
/// reported here: the next step of the cursors fails on it.
bool haveEqualPayload(BTreeCursor &before, BTreeCursor &after)
{
    if (before.payloadSize() != after.payloadSize()) {
        return false;
    }
    int beforeSize = 0;
    int afterSize = 0;
    const char *beforeBytes = before.nextPiece(beforeSize);
    const char *afterBytes = after.nextPiece(afterSize);
    while (beforeSize > 0 && afterSize > 0) {
        const int size = std::min(beforeSize, afterSize);
        if (std::memcmp(beforeBytes, afterBytes, static_cast<size_t>(size)) != 0) {
            return false;
        }
        beforeBytes += size;
        beforeSize -= size;
        afterBytes += size;
        afterSize -= size;
        if (beforeSize == 0) {
            beforeBytes = before.nextPiece(beforeSize);
        }
        if (afterSize == 0) {
            afterBytes = after.nextPiece(afterSize);
        }
    }
    return true;
}

enum class Entries {
    Equal,
    OtherBytes, ///< the same number of entries and the same rowids, but not all the same bytes
    Different   ///< different entries, or a damaged tree
};

Entries compareEntries(BTreeCursor before, BTreeCursor after)
{
    if (before.isTable() != after.isTable()) {
        return Entries::Different;
    }
    bool hasSameBytes = true;
    for (;;) {
        const bool isEntry = before.next();
        if (after.next() != isEntry || before.isDamaged() || after.isDamaged()) {
            return Entries::Different;
        }
        if (!isEntry) {
            return hasSameBytes ? Entries::Equal : Entries::OtherBytes;
        }
        if (before.rowid() != after.rowid()) {
            return Entries::Different;
        }
        hasSameBytes = hasSameBytes && haveEqualPayload(before, after);
    }
}

/// An object that both databases have.
struct CommonObject {
    StoredObject before;
    StoredObject after;
    bool isRedefined = false; ///< only type and name are equal
};

class Comparison
{
public:
    Comparison(const QString &before, const QString &after)
        : m_before(before), m_after(after), m_values(before, after)
    {
    }

    DatabaseDifferences run()
    {
        if (readError().isEmpty()) {
            const ComparedPages pages = comparePages(m_before, m_after);
            if (std::find(pages.differ.begin(), pages.differ.end(), true) != pages.differ.end()) {
                compareContents(pages);
            }
        }
        if (readError().isEmpty()) {
            return m_differences;
        }
        DatabaseDifferences failure;
        failure.readError = readError();
        return failure;
    }

private:
    QString readError() const
    {
        for (const QString &error : {m_before.readError(), m_after.readError()}) {
            if (!error.isEmpty()) {
                return error;
            }
        }
        return m_values.readError();
    }

    void compareContents(const ComparedPages &pages)
    {
        const auto before = readStoredSchema(m_before);
        const auto after = readStoredSchema(m_after);
        if (!before || !after) {
            m_differences.schemaDamaged = true;
            return;
        }
        m_differences.settings = differentSettings(m_before, m_after);
        const QVector<CommonObject> objects = compareSchemas(*before, *after);
        PageOwners owners(m_before, pages.differ, pages.linked);
        for (const CommonObject &object : objects) {
            if (object.before.object.type == "table") {
                compareTable(object, owners);
            }
        }
        for (const CommonObject &object : objects) {
            if (object.before.object.type != "table") {
                compareIndex(object, owners);
            }
        }
    }

    /// @return the objects that both databases have
    QVector<CommonObject> compareSchemas(
        const QVector<StoredObject> &before, const QVector<StoredObject> &after)
    {
        QVector<CommonObject> common;
        QVector<StoredObject> onlyBefore;
        QVector<StoredObject> onlyAfter;
        int next = 0;
        for (const StoredObject &object : before) {
            while (next < after.size() && precedes(after[next].object, object.object)) {
                onlyAfter << after[next++];
            }
            if (next < after.size() && !precedes(object.object, after[next].object)) {
                common << CommonObject{object, after[next++]};
            } else {
                onlyBefore << object;
            }
        }
        onlyAfter += after.mid(next);
        for (const StoredObject &object : onlyBefore) {
            m_differences.objectsOnlyBefore << object.object;
        }
        for (const StoredObject &object : onlyAfter) {
            m_differences.objectsOnlyAfter << object.object;
        }
        return common + redefinedTables(onlyBefore, onlyAfter);
    }

    static QVector<CommonObject> redefinedTables(
        const QVector<StoredObject> &before, const QVector<StoredObject> &after)
    {
        QHash<QByteArray, StoredObject> tables;
        for (const StoredObject &object : after) {
            if (object.object.type == "table") {
                tables.insert(object.object.name, object);
            }
        }
        QVector<CommonObject> redefined;
        for (const StoredObject &object : before) {
            const auto table = tables.constFind(object.object.name);
            if (object.object.type == "table" && table != tables.constEnd()) {
                redefined << CommonObject{object, *table, true};
            }
        }
        return redefined;
    }

    void compareTable(const CommonObject &table, PageOwners &owners)
    {
        const QByteArray &name = table.before.object.name;
        const Entries entries = compareTrees(table, owners);
        // Under another definition, the same bytes can mean other values. A virtual table has no
        // tree and is not read.
        const bool haveToBeRead =
            entries == Entries::OtherBytes ||
            (entries == Entries::Equal && table.isRedefined && table.before.rootPage != 0);
        if (entries == Entries::Different || (haveToBeRead && !m_values.haveEqualRows(name))) {
            m_differences.tables << name;
            m_differentTables.insert(name);
        }
    }

    void compareIndex(const CommonObject &index, PageOwners &owners)
    {
        if (!m_differentTables.contains(index.before.object.table) &&
            compareTrees(index, owners) != Entries::Equal) {
            m_differences.indexes << index.before.object.name;
        }
    }

    Entries compareTrees(const CommonObject &object, PageOwners &owners) const
    {
        const quint32 before = object.before.rootPage;
        const quint32 after = object.after.rootPage;
        if (before == 0 && after == 0) {
            return Entries::Equal;
        }
        const PageOwners::Answer answer = owners.ask(before);
        if (before == after && !answer.ownsPageOfSet) {
            return Entries::Equal;
        }
        // Trees that share pages are damaged, and the shared pages could be read once for every
        // table.
        return answer.sharesPages
                   ? Entries::Different
                   : compareEntries(BTreeCursor(m_before, before), BTreeCursor(m_after, after));
    }

    DatabaseFile m_before;
    DatabaseFile m_after;
    ValueComparison m_values;
    DatabaseDifferences m_differences;
    QSet<QByteArray> m_differentTables;
};

/// @return the journal or write-ahead log that is left beside a database; empty for none
QString leftJournal(const QString &path)
{
    for (const QString &suffix : {QString("-journal"), QString("-wal")}) {
        if (QFileInfo(path + suffix).size() > 0) {
            return path + suffix;
        }
    }
    return {};
}
} // namespace

bool DatabaseDifferences::isEmpty() const
{
    return readError.isEmpty() && !schemaDamaged && settings.isEmpty() &&
           objectsOnlyBefore.isEmpty() && objectsOnlyAfter.isEmpty() && tables.isEmpty() &&
           indexes.isEmpty();
}

DatabaseDifferences compareDatabases(const QString &before, const QString &after)
{
    for (const QString &path : {before, after}) {
        const QString journal = leftJournal(path);
        if (!journal.isEmpty()) {
            DatabaseDifferences differences;
            differences.readError = "not at rest: " + journal + " is left";
            return differences;
        }
    }
    return Comparison(before, after).run();
}
