#include "app/database_migrator.h"

/// Takes the device's database forward to the version of the command line, by the steps alone. The
/// program's maintenance after them would hide what a step costs.
int main(int argc, char **argv)
{
    DatabaseMigrator migrator(argc, argv);
    migrator.migrateForward();
    return migrator.currentVersion() == migrator.arguments().at(1).toInt() ? 0 : 1;
}
