#include "app/database_migrator.h"

namespace
{
// The toolkit warns of every statement on a connection that is not open and of every empty one.
// Nobody reads the terminal of a field computer: what there is to say stands in the log.
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
        // Without a handler the stack would not be unwound: the connection and the log would stay
        // open.
        throw;
    }
    return 0;
}
