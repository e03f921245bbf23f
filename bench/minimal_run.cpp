#include <QCoreApplication>
#include <QFile>
#include <QSqlDatabase>
#include <QSqlQuery>

/// The least that a Qt program needs to run statements on a database:
/// minimal_run DATABASE STATEMENTS. STATEMENTS is a file that record_statements wrote.
int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    QSqlDatabase database = QSqlDatabase::addDatabase("QSQLITE");
    database.setDatabaseName(argv[1]);
    QFile file(argv[2]);
    if (!database.open() || !file.open(QIODevice::ReadOnly)) {
        return 1;
    }
    const QByteArray statements = file.readAll();
    const char *const end = statements.end();
    for (const char *statement = statements.begin(); statement != end;
         statement += qstrlen(statement) + 1) {
        QSqlQuery query;
        query.setForwardOnly(true);
        query.exec(QString::fromUtf8(statement));
        while (query.next()) {
        }
    }
    return 0;
}
