#include <QCoreApplication>
#include <QFile>
#include <QSqlDatabase>
#include <QSqlQuery>

/// The least that a Qt program needs for running statements on a database:
/// minimal_run DATABASE STATEMENTS, the statements as record_statements writes them.
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
    const auto *statement = reinterpret_cast<const char16_t *>(statements.constData());
    const auto *const end = statement + statements.size() / 2;
    while (statement != end) {
        const QString sql = QString::fromUtf16(statement);
        statement += sql.size() + 1;
        QSqlQuery query;
        query.setForwardOnly(true);
        query.exec(sql);
        while (query.next()) {
        }
    }
    return 0;
}
