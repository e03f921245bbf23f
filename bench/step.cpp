#include "app/database_migrator.h"

/// Takes the device's database forward to the version on the command line. It runs the steps alone:
/// the program's maintenance after them would hide the cost of a step.
int main(int argc, char **argv)
{
    DatabaseMigrator migrator(argc, argv);
    migrator.migrateForward();
    return migrator.currentVersion() == migrator.arguments().at(1).toInt() ? 0 : 1;
}
