#include "fuzz/lone_migrator.h"

#include "app/database_migrator.h"

DatabaseMigrator::DatabaseMigrator(int &argumentCount, char **arguments)
    : QCoreApplication(argumentCount, arguments)
{
}

DatabaseMigrator::~DatabaseMigrator() = default;

DatabaseMigrator &migrator()
{
    static int argumentCount = 1;
    static char name[] = "fuzzer";
    static char *arguments[] = {name, nullptr};
    static DatabaseMigrator migrator(argumentCount, arguments);
    return migrator;
}
