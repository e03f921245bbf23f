#include "guard/earlier_run.h"
#include "guard/kept_database.h"
#include "guard/messages.h"
#include "guard/staging.h"

bool settlePool(const DevicePaths &device, const std::optional<RunNote> &note, qint64 schemaCookie)
{
    const bool hasHappened = note && note->schemaCookie != schemaCookie;
    if (!hasHappened || stagedPool::deleteFiles(device.pool, note->poolFiles)) {
        return true;
    }
    tell(QString("a file of the pool could not be deleted"));
    return false;
}

bool settleKeptDatabases(const DevicePaths &device, const QString &current)
{
    const bool keptChanged = KeptDatabase(device.kept).settle(current);
    const bool replacedChanged = KeptDatabase(device.replaced).settle(current);
    // A log is not a database, so it cannot be compared.
    const bool logChanged = KeptDatabase(device.replacedLog).settle(QString());
    return keptChanged || replacedChanged || logChanged;
}
