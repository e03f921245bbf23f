#include "app/database_migrator.h"

#include <QProcess>
#include <QtTest>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>

// Tests main.cpp with a migrator that only records its calls. The test program starts itself with a
// variable in the environment. It then runs the main function under test, where the call that the
// variable names throws.
int migratorMain(int argumentCount, char **arguments);

namespace
{
const char *const throwingCall = "THROWING_CALL";
const int uncaughtException = 3;

void record(const char *call)
{
    std::puts(call);
    std::fflush(stdout);
    qWarning("a warning of Qt in %s", call);
}

void recordOrThrow(const char *call)
{
    record(call);
    if (qgetenv(throwingCall) == call) {
        throw std::runtime_error(call);
    }
}

[[noreturn]] void endOnException()
{
    std::exit(uncaughtException);
}
} // namespace

DatabaseMigrator::DatabaseMigrator(int &argumentCount, char **arguments)
    : QCoreApplication(argumentCount, arguments)
{
    std::printf("constructed with %s\n", qPrintable(QCoreApplication::arguments().join(", ")));
}

DatabaseMigrator::~DatabaseMigrator()
{
    record("destroyed");
}

void DatabaseMigrator::syncPartNumber()
{
    recordOrThrow("syncPartNumber");
}

void DatabaseMigrator::runMigration()
{
    recordOrThrow("runMigration");
}

class MainTest : public QObject
{
    Q_OBJECT

private slots:
    void callsTheMigrator_data();
    void callsTheMigrator();
};

void MainTest::callsTheMigrator_data()
{
    QTest::addColumn<QString>("throwing");
    QTest::addColumn<QByteArray>("calls");
    QTest::addColumn<int>("exitStatus");

    QTest::newRow("all calls return") << ""
                                      << QByteArray("constructed with /app/main_test, 34, more\n"
                                                    "syncPartNumber\n"
                                                    "runMigration\n"
                                                    "destroyed\n")
                                      << 0;
    QTest::newRow("the first call throws")
        << "syncPartNumber"
        << QByteArray("constructed with /app/main_test, 34, more\n"
                      "syncPartNumber\n"
                      "destroyed\n")
        << uncaughtException;
    QTest::newRow("the last call throws")
        << "runMigration"
        << QByteArray("constructed with /app/main_test, 34, more\n"
                      "syncPartNumber\n"
                      "runMigration\n"
                      "destroyed\n")
        << uncaughtException;
}

void MainTest::callsTheMigrator()
{
    QFETCH(QString, throwing);
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(throwingCall, throwing);
    process.setProcessEnvironment(environment);

    process.start(QCoreApplication::applicationFilePath(), {"34", "more"});
    QVERIFY(process.waitForFinished());

    QTEST(process.readAllStandardOutput(), "calls");
    QCOMPARE(process.readAllStandardError(), QByteArray());
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QTEST(process.exitCode(), "exitStatus");
}

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsSet(throwingCall)) {
        // An exception that the main function under test does not catch ends the program.
        std::set_terminate(endOnException);
        return migratorMain(argc, argv);
    }
    const QCoreApplication application(argc, argv);
    MainTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "main_test.moc"
