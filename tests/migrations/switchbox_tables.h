#pragma once

#include <QByteArray>
#include <QString>

// The tables of the on-screen switchboxes: those that version 12 makes, and the mapping that
// version 19 puts in their place.
inline const QByteArray machines = "CREATE TABLE MC_MachineConfig (id INTEGER PRIMARY KEY)";
inline const QByteArray switches =
    "CREATE TABLE onScreenSwitchboxConfig (machineConfigId INTEGER, sectionId INTEGER, "
    "switchId INTEGER, PRIMARY KEY (machineConfigId, sectionId), FOREIGN KEY (machineConfigId) "
    "REFERENCES MC_MachineConfig(id) ON DELETE CASCADE)";
inline const QByteArray labels =
    "CREATE TABLE onScreenSwitchboxSwitchLabels (machineConfigId INTEGER, switchId INTEGER, "
    "switchLabel varchar(3), PRIMARY KEY (machineConfigId, switchId), FOREIGN KEY "
    "(machineConfigId) REFERENCES MC_MachineConfig(id) ON DELETE CASCADE)";
inline const QByteArray mapping =
    "CREATE TABLE onScreenSwitchboxToMachineMapping(machineConfigId INTEGER PRIMARY KEY, "
    "boomStringRepresentation TEXT, FOREIGN KEY (machineConfigId) REFERENCES MC_MachineConfig(id) "
    "ON DELETE CASCADE)";

// The profiles without the columns of versions 13 and 20, and their text after a rebuild.
inline const QByteArray profiles =
    "CREATE TABLE userProfiles (id INTEGER PRIMARY KEY, userName TEXT";
inline const QString profilesRebuilt =
    "CREATE TABLE \"userProfiles\" (id INTEGER , userName TEXT , PRIMARY KEY(id) )";
