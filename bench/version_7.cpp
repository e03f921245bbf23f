#include "app/database_migrator.h"

/// Takes the device's database to version 7 by that version's step alone.
int main(int argc, char **argv)
{
    DatabaseMigrator migrator(argc, argv);
    migrator.updateToVersion7();
    return migrator.currentVersion() == 7 ? 0 : 1;
}
