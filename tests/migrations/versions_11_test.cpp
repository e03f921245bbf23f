#include "support/step_test.h"

// The work of version 11 other than adding columns; for that see added_columns_test.

namespace
{
const Columns columnsOfVersion11 = {
    {"OutgoingFiles", "startDate"},
    {"OutgoingFiles", "endDate"},
    {"IncomingFiles", "startDate"},
    {"IncomingFiles", "endDate"},
    {"FileTransferHistory", "startDate"},
    {"FileTransferHistory", "endDate"},
};

// Its tables without its columns, and the profiles whose formats it corrects.
const QByteArray outgoing = "CREATE TABLE OutgoingFiles (id INTEGER PRIMARY KEY";
const QByteArray incoming = "CREATE TABLE IncomingFiles (id INTEGER PRIMARY KEY";
const QByteArray history = "CREATE TABLE FileTransferHistory (id INTEGER PRIMARY KEY";
const QByteArray dates = ", startDate TEXT, endDate TEXT)";
const QStringList noTransfers = {"OutgoingFiles", "IncomingFiles", "FileTransferHistory"};
const QByteArray profiles = "CREATE TABLE userProfiles (id INTEGER PRIMARY KEY, dateFormat TEXT)";

QByteArray refusalToChange(const QByteArray &dateFormat)
{
    return refusal("UPDATE ON userProfiles WHEN OLD.dateFormat = '" + dateFormat + "'");
}
} // namespace

class Versions11Test : public StepTest
{
    Q_OBJECT

private slots:
    void updateToVersion11_data();
    void updateToVersion11() { checkStep(&M::updateToVersion11); }
    void revertFromVersion11_data();
    void revertFromVersion11() { checkStep(&M::revertFromVersion11); }
    void secondRun_data();
    void secondRun();
    void dateFormatsDoNotComeBack();
    void getUpdate11Applied_data();
    void getUpdate11Applied() { checkProbe(&M::getUpdate11Applied); }
};

void Versions11Test::updateToVersion11_data()
{
    const QByteArray rows =
        ";INSERT INTO userProfiles VALUES(1, 'm/dd/yyyy'), (2, 'dd/m/yyyy'), (3, 'M/dd/yyyy'),"
        "(4, 'dd/M/yyyy'), (5, 'M/DD/YYYY'), (6, ' m/dd/yyyy'), (7, NULL), (8, 'm/dd/yyyy');";
    const QStringList corrected = {
        "userProfiles",
        "1, 'M/d/yyyy'",
        "2, 'd/M/yyyy'",
        "3, 'M/dd/yyyy'",
        "4, 'dd/M/yyyy'",
        "5, 'M/DD/YYYY'",
        "6, ' m/dd/yyyy'",
        "7, NULL",
        "8, 'M/d/yyyy'"};
    const QByteArray before = outgoing + ");" + incoming + ");" + history + ");";
    const QStringList tables = {outgoing + dates, incoming + dates, history + dates};
    const QStringList succeeded = {"Migration to version 11 was successful."};
    const QByteArray firstRefused = refusalToChange("m/dd/yyyy");
    const QByteArray secondRefused = refusalToChange("dd/m/yyyy");

    const auto row = addColumns<StepRun>("run");
    row("transfers get their dates, profiles get another format",
        {before +
             "INSERT INTO OutgoingFiles VALUES(1), (2);INSERT INTO IncomingFiles VALUES(3);"
             "INSERT INTO FileTransferHistory VALUES(4);" +
             profiles + rows,
         succeeded,
         11,
         tables + QStringList(profiles) +
             rowsOf("OutgoingFiles", {"1, NULL, NULL", "2, NULL, NULL"}) +
             rowsOf("IncomingFiles", {"3, NULL, NULL"}) +
             rowsOf("FileTransferHistory", {"4, NULL, NULL"}) + corrected});
    row("there is no table of profiles", {before, succeeded, 11, tables + noTransfers});
    row("the first format cannot be corrected",
        {before + profiles + ";INSERT INTO userProfiles VALUES(1, 'm/dd/yyyy'), (2, 'dd/m/yyyy');" +
             firstRefused,
         succeeded,
         11,
         tables + QStringList{profiles, firstRefused} + noTransfers +
             QStringList{"userProfiles", "1, 'm/dd/yyyy'", "2, 'd/M/yyyy'"}});
    row("the second format cannot be corrected",
        {before + profiles + ";INSERT INTO userProfiles VALUES(1, 'm/dd/yyyy'), (2, 'dd/m/yyyy');" +
             secondRefused,
         succeeded,
         11,
         tables + QStringList{profiles, secondRefused} + noTransfers +
             QStringList{"userProfiles", "1, 'M/d/yyyy'", "2, 'dd/m/yyyy'"}});
    row("there are no tables of transfers",
        {profiles + rows,
         forEach(columnsOfVersion11, addedToNothing) +
             QStringList("Migration to version 11 FAILED!"),
         versionUnmoved,
         QStringList(profiles) + corrected});
    addRowOfClosedConnection(
        forEach(columnsOfVersion11, newColumnNotAdded, "") +
        QStringList("Migration to version 11 FAILED!"));
}

void Versions11Test::revertFromVersion11_data()
{
    const QByteArray rows =
        ";INSERT INTO userProfiles VALUES(1, 'M/dd/yyyy'), (2, 'dd/M/yyyy'), (3, 'M/d/yyyy'),"
        "(4, 'd/M/yyyy'), (5, 'm/dd/yyyy'), (6, 'dd/m/yyyy'), (7, NULL), (8, 'M/dd/yyyy');";
    const QStringList reverted = {
        "userProfiles",
        "1, 'm/d/yyyy'",
        "2, 'd/m/yyyy'",
        "3, 'M/d/yyyy'",
        "4, 'd/M/yyyy'",
        "5, 'm/dd/yyyy'",
        "6, 'dd/m/yyyy'",
        "7, NULL",
        "8, 'm/d/yyyy'"};
    const QByteArray before =
        outgoing + dates + ";" + incoming + dates + ";" + history + dates + ";";
    const QStringList tables = {
        "CREATE TABLE \"OutgoingFiles\" (id INTEGER , PRIMARY KEY(id) )",
        "CREATE TABLE \"IncomingFiles\" (id INTEGER , PRIMARY KEY(id) )",
        "CREATE TABLE \"FileTransferHistory\" (id INTEGER , PRIMARY KEY(id) )"};
    const QByteArray firstRefused = refusalToChange("M/dd/yyyy");
    const QByteArray secondRefused = refusalToChange("dd/M/yyyy");

    const auto row = addColumns<StepRun>("run");
    row("transfers lose their dates, and other formats change than in the forward step",
        {profiles + rows + before +
             "INSERT INTO OutgoingFiles VALUES(1, '2013-01-01', '2013-02-01'), (2, '', NULL);"
             "INSERT INTO IncomingFiles VALUES(3, NULL, '2013-02-01');"
             "INSERT INTO FileTransferHistory VALUES(4, NULL, NULL);",
         {},
         10,
         QStringList(profiles) + tables + reverted +
             QStringList{
                 "OutgoingFiles", "1", "2", "IncomingFiles", "3", "FileTransferHistory", "4"}});
    row("there is no table of profiles", {before, {}, 10, tables + noTransfers});
    row("the first format cannot be changed",
        {before + profiles + ";INSERT INTO userProfiles VALUES(1, 'M/dd/yyyy'), (2, 'dd/M/yyyy');" +
             firstRefused,
         {},
         10,
         QStringList{profiles, firstRefused} + tables +
             QStringList{"userProfiles", "1, 'M/dd/yyyy'", "2, 'd/m/yyyy'"} + noTransfers});
    row("the second format cannot be changed",
        {before + profiles + ";INSERT INTO userProfiles VALUES(1, 'M/dd/yyyy'), (2, 'dd/M/yyyy');" +
             secondRefused,
         {},
         10,
         QStringList{profiles, secondRefused} + tables +
             QStringList{"userProfiles", "1, 'm/d/yyyy'", "2, 'dd/M/yyyy'"} + noTransfers});
    row("there are no tables of transfers",
        {profiles + rows,
         forEach(columnsOfVersion11, columnStays, rebuildRefused),
         10,
         QStringList(profiles) + reverted});
    addRowOfClosedConnection(forEach(columnsOfVersion11, columnStays, ""), 10);
}

void Versions11Test::secondRun_data()
{
    const auto row = addColumns<Step, int, QStringList>("step", "version", "log");
    row("forward: the columns are there",
        &M::updateToVersion11,
        11,
        (forEach(columnsOfVersion11, addedBefore) << "Migration to version 11 FAILED!"));
    row("backward: the tables are rebuilt as they are", &M::revertFromVersion11, 10, {});
}

void Versions11Test::secondRun()
{
    device->sql(
        outgoing + ");" + incoming + ");" + history + ");" + profiles +
        ";INSERT INTO OutgoingFiles VALUES(1);INSERT INTO userProfiles VALUES(1, 'm/dd/yyyy');");
    checkSecondRun(startAt(versionUnmoved));
}

void Versions11Test::dateFormatsDoNotComeBack()
{
    device->sql(
        outgoing + ");" + incoming + ");" + history + ");" + profiles +
        ";INSERT INTO userProfiles VALUES(1, 'm/dd/yyyy'), (2, 'dd/m/yyyy')");
    DatabaseMigrator &migrator = startAt(versionUnmoved);

    migrator.updateToVersion11();
    migrator.revertFromVersion11();

    COMPARE_LINES(
        device->rows("SELECT * FROM userProfiles"),
        QStringList({"1, 'M/d/yyyy'", "2, 'd/M/yyyy'"}));
    QCOMPARE(migrator.currentVersion(), 10);
}

void Versions11Test::getUpdate11Applied_data()
{
    const auto row = addColumns<QByteArray, bool>("before", "applied");
    row("both columns are there", "CREATE TABLE OutgoingFiles (id, startDate, endDate)", true);
    row("the columns are the first ones", "CREATE TABLE OutgoingFiles (endDate, startDate)", true);
    row("there is no start", "CREATE TABLE OutgoingFiles (id, endDate)", false);
    row("there is no end", "CREATE TABLE OutgoingFiles (id, startDate)", false);
    row("the start has another letter case",
        "CREATE TABLE OutgoingFiles (id, StartDate, endDate)",
        false);
    row("the end has another letter case",
        "CREATE TABLE OutgoingFiles (id, startDate, EndDate)",
        false);
    row("there is no table", "", true);
    row("a table in another letter case is not seen", "CREATE TABLE outgoingfiles (id)", true);
    row("a view is not seen", "CREATE VIEW OutgoingFiles AS SELECT 1 AS id", true);
    row("the other tables are not looked at",
        "CREATE TABLE OutgoingFiles (id, startDate, endDate);"
        "CREATE TABLE IncomingFiles (id);CREATE TABLE FileTransferHistory (id)",
        true);
}

QTEST_APPLESS_MAIN(Versions11Test)
#include "versions_11_test.moc"
