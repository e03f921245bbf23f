#include "schema/statements.h"
#include "support/device_test.h"
#include "support/encodings.h"

#include <QDir>
#include <QFileInfo>
#include <QTextCodec>

#include <csignal>

#include <sys/resource.h>

namespace
{
QStringList qtMessages;

void keepMessage(QtMsgType, const QMessageLogContext &, const QString &text)
{
    qtMessages << text;
}

/// During its lifetime, collects the messages that Qt would print to the terminal.
class QtMessages
{
public:
    QtMessages() : m_handlerBefore(qInstallMessageHandler(keepMessage))
    {
        QLoggingCategory::setFilterRules("default.warning=true");
        qtMessages.clear();
    }
    ~QtMessages()
    {
        qInstallMessageHandler(m_handlerBefore);
        QLoggingCategory::setFilterRules("default.warning=false");
    }
    QtMessages(const QtMessages &) = delete;
    QtMessages &operator=(const QtMessages &) = delete;

private:
    QtMessageHandler m_handlerBefore;
};

/// During its lifetime, no file of this process can grow beyond the log's size and some bytes.
class FullDisk
{
public:
    explicit FullDisk(qint64 room)
    {
        std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &m_before);
        const rlimit full{
            static_cast<rlim_t>(QFileInfo(ScratchDevice::logPath).size() + room),
            m_before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &full);
    }
    ~FullDisk() { setrlimit(RLIMIT_FSIZE, &m_before); }
    FullDisk(const FullDisk &) = delete;
    FullDisk &operator=(const FullDisk &) = delete;

private:
    rlimit m_before{};
};

/// @return the files of the databases directory that are open in this process
QStringList openFiles()
{
    QStringList files;
    const auto entries = QDir("/proc/self/fd").entryInfoList(QDir::Files | QDir::System);
    for (const QFileInfo &entry : entries) {
        if (entry.symLinkTarget().startsWith("/app/databases/")) {
            files << entry.symLinkTarget();
        }
    }
    files.sort();
    return files;
}
} // namespace

class ConstructionTest : public DeviceTest
{
    Q_OBJECT

private slots:
    void init() override;

    void readsTheVersions_data();
    void readsTheVersions();
    void choosesTheTarget_data();
    void choosesTheTarget();
    void addsTheMirelVersion_data();
    void addsTheMirelVersion();
    void changesNothingElse();
    void switchesForeignKeysOn();
    void opensTheDefaultConnection();
    void databaseThatCannotBeOpened_data();
    void databaseThatCannotBeOpened();
    void operationsOnADatabaseThatIsNotOpen();
    void missingDatabasesDirectory_data();
    void missingDatabasesDirectory();
    void appendsToTheLog();
    void logThatCannotBeOpened();
    void logMessage();
    void logThatCannotBeWrittenForATime();
    void readSoftwareVersion_data();
    void readSoftwareVersion();
    void softwareVersionThatIsADirectory();
    void addsTheLibraryPath_data();
    void addsTheLibraryPath();
    void destructionClosesEverything();

private:
    void recordVersions(const QByteArray &main, const QByteArray &alternate);
    QStringList messagesOfARun(const QStringList &arguments);
};

void ConstructionTest::init()
{
    // Files and log are UTF-8 even when the locale has another encoding.
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("ISO-8859-1"));
    device = std::make_unique<ScratchDevice>();
}

/// Makes the table of versions with values of any type; an empty value adds no row.
void ConstructionTest::recordVersions(const QByteArray &main, const QByteArray &alternate)
{
    device->sql(
        "CREATE TABLE tableVersion (tableName TEXT PRIMARY KEY, version, MirelVersion TEXT);");
    if (!main.isEmpty()) {
        device->sql("INSERT INTO tableVersion VALUES('mainSqlDb', " + main + ", '')");
    }
    if (!alternate.isEmpty()) {
        device->sql("INSERT INTO tableVersion VALUES('altSqlDb', " + alternate + ", '')");
    }
}

void ConstructionTest::readsTheVersions_data()
{
    const auto row =
        addColumns<QByteArray, QByteArray, int, int>("main", "alternate", "current", "target");
    row("both rows", "34", "12", 34, 12);
    row("both rows with the same version", "12", "12", 12, 12);
    row("there is no row", "", "", 0, 0);
    row("only the main row", "34", "", 34, 0);
    row("only the alternate row", "", "12", 0, 12);
    row("numbers as texts", "'34'", "'12'", 34, 12);
    row("texts that are no numbers", "'newest'", "'12 or so'", 0, 0);
    row("NULL", "NULL", "NULL", 0, 0);
    row("negative", "-5", "-1", -5, -1);
    row("the largest and the smallest 32-bit number",
        "2147483647",
        "-2147483648",
        2147483647,
        -2147483647 - 1);
    row("of larger numbers the lowest 32 bits are read", "4294967330", "-4294967284", 34, 12);
}

void ConstructionTest::readsTheVersions()
{
    QFETCH(QByteArray, main);
    QFETCH(QByteArray, alternate);
    QFETCH(int, current);
    QFETCH(int, target);
    recordVersions(main, alternate);

    const DatabaseMigrator &migrator = device->start();

    QCOMPARE(migrator.currentVersion(), current);
    QCOMPARE(
        device->takeLog(),
        QString("\n*****Beginning database migration from version: %1 to version: %2\n")
            .arg(current)
            .arg(target));
}

void ConstructionTest::choosesTheTarget_data()
{
    const auto row = addColumns<QStringList, int>("arguments", "target");
    row("without an argument the target is the alternate version", {}, 12);
    row("the first argument is the target", {"20"}, 20);
    row("further arguments do not count", {"20", "21"}, 20);
    row("not a number", {"abc"}, 0);
    row("empty", {""}, 0);
    row("a number and more", {"12abc"}, 0);
    row("blanks around a number", {" 13 "}, 13);
    row("a plus sign", {"+5"}, 5);
    row("leading zeros are decimal", {"010"}, 10);
    row("hexadecimal is not a number", {"0x10"}, 0);
    row("a fraction is not a number", {"20.0"}, 0);
    row("negative", {"-5"}, -5);
    row("the largest", {"2147483647"}, 2147483647);
    row("the smallest", {"-2147483648"}, -2147483647 - 1);
    row("too large", {"2147483648"}, 0);
    row("far too large", {"99999999999"}, 0);
}

void ConstructionTest::choosesTheTarget()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, target);
    recordVersions("34", "12");

    device->start(arguments);

    QCOMPARE(
        device->takeLog(),
        QString("\n*****Beginning database migration from version: 34 to version: %1\n")
            .arg(target));
}

void ConstructionTest::addsTheMirelVersion_data()
{
    const auto row = addColumns<QByteArray, QString, QStringList>("before", "log", "after");
    row("the column is missing",
        "CREATE TABLE tableVersion (tableName TEXT PRIMARY KEY, version INTEGER);"
        "INSERT INTO tableVersion VALUES('mainSqlDb', 3), ('altSqlDb', 2);",
        "\n*****Beginning database migration from version: 3 to version: 2\n",
        {"CREATE TABLE tableVersion (tableName TEXT PRIMARY KEY, version INTEGER, "
         "MirelVersion TEXT)",
         "tableVersion",
         "'mainSqlDb', 3, NULL",
         "'altSqlDb', 2, NULL"});
    row("the column is there in another letter case",
        "CREATE TABLE tableVersion (tableName TEXT, version INTEGER, mirelVersion TEXT);"
        "INSERT INTO tableVersion VALUES('mainSqlDb', 3, '1.2.3')",
        "DatabaseMigrator::addColumnIfNotExists - Failed to add column named MirelVersion to "
        "tableVersion\n"
        "DatabaseMigrator::addColumnIfNotExists - duplicate column name: MirelVersion "
        "Unable to execute statement\n"
        "\n*****Beginning database migration from version: 3 to version: 0\n",
        {"CREATE TABLE tableVersion (tableName TEXT, version INTEGER, mirelVersion TEXT)",
         "tableVersion",
         "'mainSqlDb', 3, '1.2.3'"});
    row("there is no table",
        "CREATE TABLE field (id INTEGER)",
        "DatabaseMigrator::addColumnIfNotExists - Failed to add column named MirelVersion to "
        "tableVersion\n"
        "DatabaseMigrator::addColumnIfNotExists - no such table: tableVersion "
        "Unable to execute statement\n"
        "\n*****Beginning database migration from version: 0 to version: 0\n",
        {"CREATE TABLE field (id INTEGER)", "field"});
}

void ConstructionTest::addsTheMirelVersion()
{
    QFETCH(QByteArray, before);
    QFETCH(QString, log);
    QFETCH(QStringList, after);
    device->sql(before);

    device->start();

    QCOMPARE(device->takeLog(), log);
    COMPARE_LINES(device->dump(), after);
}

void ConstructionTest::changesNothingElse()
{
    recordVersions("3", "2");
    device->sql("CREATE TABLE field (id INTEGER PRIMARY KEY); INSERT INTO field VALUES(1)");
    const QStringList before = device->dump();

    device->start({"34"});

    COMPARE_LINES(device->dump(), before);
}

void ConstructionTest::switchesForeignKeysOn()
{
    recordVersions("3", "2");

    device->start();

    QCOMPARE(firstValue("PRAGMA foreign_keys").toInt(), 1);
}

void ConstructionTest::opensTheDefaultConnection()
{
    recordVersions("3", "2");

    device->start();

    QCOMPARE(QSqlDatabase::connectionNames(), QStringList("qt_sql_default_connection"));
    const QSqlDatabase database = QSqlDatabase::database();
    QCOMPARE(database.driverName(), QString("QSQLITE"));
    QCOMPARE(database.databaseName(), ScratchDevice::databasePath);
    QVERIFY(database.isOpen());
}

void ConstructionTest::databaseThatCannotBeOpened_data()
{
    const auto row = addColumns<QStringList, QString>("arguments", "log");
    // The line "Updating version" proves that the software version is still read.
    row("without an argument",
        {},
        "unable to open database file Error opening database\n"
        "\n*****Beginning database migration from version: 0 to version: 0\n"
        "\n*****Updating version in DB to: 0 with software version: \n\n\n");
    row("with a target",
        {"5"},
        "unable to open database file Error opening database\n"
        "\n*****Beginning database migration from version: 0 to version: 5\n"
        "\n*****Updating version in DB to: 0 with software version: 1.2.3\n\n\n");
}

void ConstructionTest::databaseThatCannotBeOpened()
{
    QFETCH(QStringList, arguments);
    QVERIFY(QDir().mkpath(ScratchDevice::databasePath));
    ScratchDevice::writeFile(ScratchDevice::softwareVersionPath, "1.2.3\n");
    const QtMessages kept;

    DatabaseMigrator &migrator = device->start(arguments);
    QVERIFY(!QSqlDatabase::database(QSqlDatabase::defaultConnection, false).isOpen());
    migrator.updateDatabaseVersion();

    QTEST(device->takeLog(), "log");
}

void ConstructionTest::operationsOnADatabaseThatIsNotOpen()
{
    QVERIFY(QDir().mkpath(ScratchDevice::databasePath));
    const QtMessages kept;
    DatabaseMigrator &migrator = start();

    QVERIFY(!migrator.tableExists("field"));
    QVERIFY(!migrator.columnExists("field", "id"));
    QVERIFY(migrator.getTableInfo("field").columnNames.isEmpty());
    QVERIFY(!migrator.addColumn("field", "area", "REAL"));
    QVERIFY(!migrator.addColumnIfNotExists("field", "area", "REAL"));
    QVERIFY(!migrator.setColumnValue("field", "area", "1"));
    QVERIFY(!migrator.dropTable("field"));
    QVERIFY(!migrator.dropColumnSaveParameters("field", "area"));

    // Without a connection the error has no text.
    QCOMPARE(
        device->takeLog(),
        QString(
            "DatabaseMigrator::addColumn - Failed to add column named area to field\n"
            "DatabaseMigrator::addColumn - \n"
            "DatabaseMigrator::addColumnIfNotExists - Failed to add column named area to field\n"
            "DatabaseMigrator::addColumnIfNotExists - \n"
            "DatabaseMigrator::setColumnValue - Failed to set column named area to 1\n"
            "DatabaseMigrator::setColumnValue - \n"
            "DatabaseMigrator::dropTable - Failed to drop table named field\n"
            "DatabaseMigrator::dropTable - \n"
            "DatabaseMigrator::dropColumnSaveParameters - Failed to drop column named area to field\n"
            "DatabaseMigrator::dropColumnSaveParameters - \n"));
}

void ConstructionTest::missingDatabasesDirectory_data()
{
    const auto row = addColumns<bool>("aFileHasTheName");
    row("the name does not exist", false);
    row("a file has the name", true);
}

void ConstructionTest::missingDatabasesDirectory()
{
    QFETCH(bool, aFileHasTheName);
    QVERIFY(QDir("/app/databases").removeRecursively());
    if (aFileHasTheName) {
        ScratchDevice::writeFile("/app/databases", "no directory");
    }

    // Target and software version are not read: there is nothing to migrate.
    const QStringList messagesWithoutMigration = messagesOfARun({"0"});
    ScratchDevice::writeFile(ScratchDevice::softwareVersionPath, "1.2.3\n");
    COMPARE_LINES(messagesOfARun({"20"}), messagesWithoutMigration);
    COMPARE_LINES(messagesOfARun({}), messagesWithoutMigration);

    QVERIFY(!QSqlDatabase::database(QSqlDatabase::defaultConnection, false).isOpen());
    QCOMPARE(ScratchDevice::readFile("/app/databases"), aFileHasTheName ? "no directory" : "");
    QCOMPARE(QFileInfo::exists("/app/databases"), aFileHasTheName);
}

/// @return the messages that Qt would print in a run: one for every statement on the closed
/// connection
QStringList ConstructionTest::messagesOfARun(const QStringList &arguments)
{
    const QtMessages kept;
    device->start(arguments).runMigration();
    return qtMessages;
}

void ConstructionTest::appendsToTheLog()
{
    recordVersions("3", "2");
    ScratchDevice::writeFile(ScratchDevice::logPath, "earlier\n");

    device->start({"3"});
    device->start({"4"});

    QCOMPARE(
        ScratchDevice::readFile(ScratchDevice::logPath),
        QByteArray("earlier\n"
                   "\n*****Beginning database migration from version: 3 to version: 3\n"
                   "\n*****Beginning database migration from version: 3 to version: 4\n"));
}

void ConstructionTest::logThatCannotBeOpened()
{
    recordVersions("3", "2");
    ScratchDevice::writeFile(ScratchDevice::softwareVersionPath, "1.2.3\n");
    QVERIFY(QDir().mkpath(ScratchDevice::logPath));
    const QtMessages kept;

    DatabaseMigrator &migrator = device->start({"5"});
    migrator.logMessage("lost");
    migrator.updateDatabaseVersion();

    COMPARE_LINES(qtMessages, QStringList());
    COMPARE_LINES(
        device->rows("SELECT * FROM tableVersion"),
        QStringList({"'mainSqlDb', 3, '1.2.3'", "'altSqlDb', 2, ''"}));
}

void ConstructionTest::logMessage()
{
    DatabaseMigrator &migrator = start();

    migrator.logMessage("Größe, Озимая рожь, 冬小麦 %1");
    QCOMPARE(device->takeLog(), QString("Größe, Озимая рожь, 冬小麦 %1\n"));
    migrator.logMessage("");
    QCOMPARE(device->takeLog(), QString("\n"));
    migrator.logMessage("\n*****two lines");
    QCOMPARE(device->takeLog(), QString("\n*****two lines\n"));
}

void ConstructionTest::logThatCannotBeWrittenForATime()
{
    DatabaseMigrator &migrator = start();
    {
        const FullDisk fullDisk(4);
        migrator.logMessage("written in part");
        migrator.logMessage("not written");
        QCOMPARE(device->takeLog(), QString("writ"));
    }

    migrator.logMessage("written");

    QCOMPARE(device->takeLog(), QString("ten in part\nnot written\nwritten\n"));
}

void ConstructionTest::readSoftwareVersion_data()
{
    const auto row = addColumns<QByteArray, QString>("content", "version");
    row("the first line", "1.2.3\n4.5.6\n", "1.2.3");
    row("the line has no end", "1.2.3", "1.2.3");
    row("the line ends with CR LF", "1.2.3\r\n4.5.6\r\n", "1.2.3");
    row("blanks belong to the version", " 1.2.3\t \n", " 1.2.3\t ");
    row("an empty file", "", "");
    row("an empty first line", "\n1.2.3\n", "");
    row("letters outside ASCII", "Größe 冬\n", "Größe 冬");
    row("not valid UTF-8", "1.\xff.3\n", QString("1.%1.3").arg(QChar(0xfffd)));
    row("UTF-8 with a byte order mark", "\xef\xbb\xbfGröße č\n1.2\n", "Größe č");
    for (const char *encoding : {"UTF-16LE", "UTF-16BE", "UTF-32LE", "UTF-32BE"}) {
        QTest::addRow("%s with a byte order mark", encoding)
            << encodedWithMark(encoding, "Größe č\n1.2\n") << "Größe č";
    }
    row("UTF-16 without a byte order mark is read as UTF-8",
        encodedWithMark("UTF-16LE", "1.2").mid(2),
        QString::fromLatin1("1\0.\0002\0", 6));
    row("a megabyte on one line", QByteArray(1 << 20, '7') + "\n1.2.3\n", QString(1 << 20, '7'));
}

void ConstructionTest::readSoftwareVersion()
{
    QFETCH(QByteArray, content);
    const DatabaseMigrator &migrator = device->start();
    QCOMPARE(migrator.readSoftwareVersion(), QString());

    ScratchDevice::writeFile(ScratchDevice::softwareVersionPath, content);

    QTEST(migrator.readSoftwareVersion(), "version");
}

void ConstructionTest::softwareVersionThatIsADirectory()
{
    QVERIFY(QDir().mkpath(ScratchDevice::softwareVersionPath));

    QCOMPARE(device->start().readSoftwareVersion(), QString());
}

void ConstructionTest::addsTheLibraryPath_data()
{
    const auto row = addColumns<bool>("exists");
    // Qt ignores a path that does not exist.
    row("the directory exists", true);
    row("the directory is missing", false);
}

void ConstructionTest::addsTheLibraryPath()
{
    QFETCH(bool, exists);
    if (exists) {
        QVERIFY(QDir().mkpath("/app/quillmoor"));
    }

    device->start();

    QCOMPARE(QCoreApplication::libraryPaths().contains("/app/quillmoor"), exists);
}

void ConstructionTest::destructionClosesEverything()
{
    recordVersions("3", "2");
    int argumentCount = 1;
    QByteArray name = "database-migrator";
    char *arguments[] = {name.data(), nullptr};
    {
        const DatabaseMigrator migrator(argumentCount, arguments);
        COMPARE_LINES(
            openFiles(), QStringList({ScratchDevice::databasePath, ScratchDevice::logPath}));
    }

    COMPARE_LINES(openFiles(), QStringList());
    QVERIFY(!QSqlDatabase::database(QSqlDatabase::defaultConnection, false).isOpen());
    QCOMPARE(QCoreApplication::instance(), nullptr);
}

QTEST_APPLESS_MAIN(ConstructionTest)
#include "construction_test.moc"
