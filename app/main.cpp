#include "app/database_migrator.h"

namespace
{
// Qt prints a warning for every empty statement and for every statement on a closed connection. A
// field computer has no terminal that somebody reads; the log says everything.
void discardMessage(QtMsgType, const QMessageLogContext &, const QString &) {}
} // namespace

int main(int argc, char **argv)
{
    qInstallMessageHandler(discardMessage);
    try {
        DatabaseMigrator migrator(argc, argv);
        migrator.syncPartNumber();
        migrator.runMigration();
    } catch (...) {
        // Without a handler the stack need not be unwound: the connection and the log would stay open.
        throw;
    }
    return 0;
}
