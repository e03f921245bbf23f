#include <QCoreApplication>
#include <QFile>
#include <QSqlDatabase>
#include <QSqlQuery>

/// The least that a Qt program needs for running the statements of a file, one a line, on a
/// database: minimal_run DATABASE STATEMENTS
int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    QSqlDatabase database = QSqlDatabase::addDatabase("QSQLITE");
    database.setDatabaseName(argv[1]);
    QFile statements(argv[2]);
    if (!database.open() || !statements.open(QIODevice::ReadOnly)) {
        return 1;
    }
    while (!statements.atEnd()) {
        QSqlQuery query;
        query.setForwardOnly(true);
        if (!query.exec(QString::fromUtf8(statements.readLine()))) {
            return 1;
        }
        while (query.next()) {
        }
    }
    return 0;
}
