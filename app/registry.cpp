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
    {3, &M::updateToVersion3, &M::getUpdate3Applied, &M::revertFromVersion3},
    {4, &M::updateToVersion4, &M::getUpdate4Applied, &M::revertFromVersion4},
    {5, &M::updateToVersion5, &M::getUpdate5Applied, &M::revertFromVersion5},
    {6, &M::updateToVersion6, &M::getUpdate6Applied, &M::revertFromVersion6},
    {7, &M::updateToVersion7, &M::getUpdate7Applied, &M::revertFromVersion7},
    {8, &M::updateToVersion8, &M::getUpdate8Applied, &M::revertFromVersion8},
    {9, &M::updateToVersion9, &M::getUpdate9Applied, &M::revertFromVersion9},
    {10, &M::updateToVersion10, &M::getUpdate10Applied, &M::revertFromVersion10},
    {11, &M::updateToVersion11, &M::getUpdate11Applied, &M::revertFromVersion11},
    {12, &M::updateToVersion12, &M::getUpdate12Applied, &M::revertFromVersion12},
    {13, &M::updateToVersion13, &M::getUpdate13Applied, &M::revertFromVersion13},
    {14, &M::updateToVersion14, &M::getUpdate14Applied, &M::revertFromVersion14},
    {15, &M::updateToVersion15, &M::getUpdate15Applied, &M::revertFromVersion15},
    {16, &M::updateToVersion16, &M::getUpdate16Applied, &M::revertFromVersion16},
    {17, &M::updateToVersion17, &M::getUpdate17Applied, &M::revertFromVersion17},
    {18, &M::updateToVersion18, &M::getUpdate18Applied, &M::revertFromVersion18},
    {19, &M::updateToVersion19, &M::getUpdate19Applied, &M::revertFromVersion19},
    {20, &M::updateToVersion20, &M::getUpdate20Applied, &M::revertFromVersion20},
    {21, &M::updateToVersion21, &M::getUpdate21Applied, &M::revertFromVersion21},
    {22, &M::updateToVersion22, &M::getUpdate22Applied, &M::revertFromVersion22},
    {23, &M::updateToVersion23, &M::getUpdate23Applied, &M::revertFromVersion23},
    {24, &M::updateToVersion24, &M::getUpdate24Applied, &M::revertFromVersion24},
    {25, &M::updateToVersion25, &M::getUpdate25Applied, &M::revertFromVersion25},
    {26, &M::updateToVersion26, &M::getUpdate26Applied, &M::revertFromVersion26},
    {27, &M::updateToVersion27, &M::getUpdate27Applied, &M::revertFromVersion27},
    {28, &M::updateToVersion28, &M::getUpdate28Applied, &M::revertFromVersion28},
    {29, &M::updateToVersion29, &M::getUpdate29Applied, &M::revertFromVersion29},
    {30, &M::updateToVersion30, &M::getUpdate30Applied, &M::revertFromVersion30},
    {31, &M::updateToVersion31, &M::getUpdate31Applied, &M::revertFromVersion31},
    {32, &M::updateToVersion32, &M::getUpdate32Applied, &M::revertFromVersion32},
    {33, &M::updateToVersion33, &M::getUpdate33Applied, &M::revertFromVersion33},
    {34, &M::updateToVersion34, &M::getUpdate34Applied, &M::revertFromVersion34},
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
