#include "app/database_migrator.h"

/// Renames what is equal in the device's database, and does nothing else of a run.
int main(int argc, char **argv)
{
    DatabaseMigrator migrator(argc, argv);
    migrator.renameDuplicateFiles();
    migrator.renameDuplicateNames();
    return 0;
}
