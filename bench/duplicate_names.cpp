#include "app/database_migrator.h"

/// Renames equal names in the device's database. No other part of a run happens.
int main(int argc, char **argv)
{
    DatabaseMigrator migrator(argc, argv);
    migrator.renameDuplicateFiles();
    migrator.renameDuplicateNames();
    return 0;
}
