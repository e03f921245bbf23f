#include "app/database_migrator.h"

/// Rebuilds the table "measured" of the device's database without its column "obsolete".
int main(int argc, char **argv)
{
    DatabaseMigrator migrator(argc, argv);
    return migrator.dropColumnSaveParameters("measured", "obsolete") ? 0 : 1;
}
