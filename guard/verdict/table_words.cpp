#include "guard/verdict/table_words.h"

#include "guard/verdict/finding.h"

namespace
{
struct TableWord {
    const char *table;
    const char *word;
};

/// The only list of the user's words for the contents of tables. Add a line for a new table.
constexpr TableWord words[] = {
    {"boomCapacity", "boom capacities"},
    {"cropTypes", "crop types"},
    {"farms", "farms"},
    {"fields", "fields"},
    {"files", "files"},
    {"FileTransferHistory", "past file transfers"},
    {"gpsReceivers", "GPS receivers"},
    {"growers", "growers"},
    {"guidanceLines", "guidance lines"},
    {"IncomingFiles", "incoming files"},
    {"internalGpsReceiverSettings", "GPS receiver settings"},
    {"JP_DispatcherFilters", "dispatcher filters"},
    {"JP_JobProfile", "job profiles"},
    {"languages", "languages"},
    {"machineToGpsReceiverMapping", "GPS receivers of machines"},
    {"MC_EquipmentSection", "equipment sections"},
    {"MC_EquipmentSectionGroup", "groups of equipment sections"},
    {"MC_Machine", "machines"},
    {"MC_MachineConfig", "machine configurations"},
    {"MC_MachineSystem", "machine systems"},
    {"ombrixMasterSettings", "Ombrix settings"},
    {"onScreenSwitchboxConfig", "on-screen switches"},
    {"onScreenSwitchboxSettings", "on-screen switchbox settings"},
    {"onScreenSwitchboxSwitchLabels", "labels of on-screen switches"},
    {"onScreenSwitchboxToMachineMapping", "on-screen switchboxes of machines"},
    {"OutgoingFiles", "outgoing files"},
    {"PC_Carrier", "carriers"},
    {"PC_Ingredient", "ingredients"},
    {"PC_IngredientToMixBridge", "ingredients of mixes"},
    {"PC_Mix", "mixes"},
    {"PC_MixToProductConfigBridge", "mixes of product configurations"},
    {"PC_PlanterVariety", "planter varieties"},
    {"PC_PlanterVarietyToProductConfigBridge", "planter varieties of product configurations"},
    {"PC_ProductConfig", "product configurations"},
    {"PC_ProductConfigToMachineConfigBridge", "product configurations of machines"},
    {"preferredGpsSolutions", "preferred GPS solutions"},
    {"productControl_productSettings", "product settings"},
    {"productControl_userProfile", "product control settings of users"},
    {"registrationInfo", "the registration"},
    {"reverseSenseSettings", "reverse sense settings"},
    {"serialDevices", "serial devices"},
    {"SM_Preferences", "preferences"},
    {"SoftwareUpdates", "software updates"},
    {"SoftwareUpdateTable", "checks for software updates"},
    {"SoftwareVersion", "software versions"},
    {"supportedHarloReceiverSettings", "GPS receiver settings"},
    {"switchToSectionBridge", "switches of sections"},
    {"systemControl", "system settings"},
    {"systemFiles", "system files"},
    {"userProfiles", "user profiles"},
    {"VideoCaptureConfigurationSetup", "camera settings"},
    {"weatherLog", "weather log"},
    {"weatherReadings", "weather readings"},
    {"WeatherStationConfig", "weather stations"},
    {"workOrderRxMaps", "work order maps"},
};
} // namespace

QString wordForTable(const QByteArray &table)
{
    for (const TableWord &word : words) {
        if (qstricmp(word.table, table.constData()) == 0) {
            return QString::fromLatin1(word.word);
        }
    }
    return QString::fromLatin1(printableName(table));
}
