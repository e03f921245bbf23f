INSERT OR IGNORE INTO MC_Machine (id, displayName, machineType) VALUES (101, 'Mähdrescher 9 m', 4);
INSERT OR IGNORE INTO MC_Machine (id, displayName, machineType)
 VALUES (102, 'Forage harvester', 4);
INSERT OR IGNORE INTO MC_Machine (id, displayName, machineType)
VALUES (103, 'Self-propelled sprayer', 2);
INSERT OR IGNORE INTO MC_MachineType (id, displayName) VALUES (4, 'Harvester');
