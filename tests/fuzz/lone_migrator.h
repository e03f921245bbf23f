#pragma once

class DatabaseMigrator;

/// @return the program's one migrator, which has no log and no database
DatabaseMigrator &migrator();
