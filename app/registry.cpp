#include "app/database_migrator.h"

namespace
{
using M = DatabaseMigrator;

/// One version of the catalogue with its three operations.
struct Entry {
    int version;
    void (M::*update)();
    bool (M::*applied)() const;
    void (M::*revert)();
};

constexpr Entry catalogue[] = {
    {2, &M::updateToVersion2, &M::getUpdate2Applied, &M::revertFromVersion2},
};

constexpr bool versionsHaveNoGap()
{
    int expected = 2;
    for (const Entry &entry : catalogue) {
        if (entry.version != expected++) {
            return false;
        }
    }
    return true;
}
static_assert(versionsHaveNoGap(), "the catalogue goes from version 2 to the newest, one by one");
} // namespace

void DatabaseMigrator::fillRegistries()
{
    for (const Entry &entry : catalogue) {
        m_forwardSteps.insert(entry.version, entry.update);
        m_probes.insert(entry.version, entry.applied);
        m_backwardSteps.insert(entry.version, entry.revert);
    }
}
