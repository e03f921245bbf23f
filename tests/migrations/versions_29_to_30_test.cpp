#include "support/step_test.h"

#include <sqlite3.h>

namespace
{
// ---- Version 29 -------------------------------------------------------------------------------

const QByteArray reverseSenseAt28 =
    "CREATE TABLE reverseSenseSettings (mc_sqlId INTEGER PRIMARY KEY NOT NULL,"
    "enableRemoteReverseSense INTEGER NOT NULL,"
    "overrideRemoteReverseSenseDefaultDirection INTEGER NOT NULL)";
const QByteArray reverseSenseAt29 =
    "CREATE TABLE reverseSenseSettings (mc_sqlId INTEGER PRIMARY KEY NOT NULL,"
    "enableHardwiredReverseSense INTEGER NOT NULL,"
    "overrideHardwiredReverseSenseDefaultDirection INTEGER NOT NULL)";
const QByteArray reverseSenseRows = ";INSERT INTO reverseSenseSettings VALUES(1, 1, 0), (8, 0, 1);";
const QByteArray reverseSenseLeftOver = "CREATE TABLE reverseSenseSettings_temp (mc_sqlId);";

/// @return a table's CREATE text as it is after a rename
QByteArray renamed(const QByteArray &createText, const QByteArray &name)
{
    return "CREATE TABLE \"" + name + "\" " + createText.mid(createText.indexOf('('));
}

// ---- Version 30 -------------------------------------------------------------------------------

const QByteArray controlAt29 =
    "CREATE TABLE systemControl (id INTEGER PRIMARY KEY, timeZone TEXT NOT NULL DEFAULT 'UTC')";
const QByteArray controlAt30 =
    "CREATE TABLE systemControl (id INTEGER PRIMARY KEY, timeZone TEXT NOT NULL DEFAULT 'UTC', "
    "wirelessEnabled BOOLEAN DEFAULT 0)";
const QString controlRebuilt =
    "CREATE TABLE \"systemControl\" (id INTEGER , timeZone TEXT NOT NULL  DEFAULT 'UTC' , "
    "PRIMARY KEY(id) )";

} // namespace

class Versions29To30Test : public StepTest
{
    Q_OBJECT

private slots:
    void updateToVersion29_data();
    void updateToVersion29() { checkStep(&M::updateToVersion29); }
    void revertFromVersion29_data();
    void revertFromVersion29() { checkStep(&M::revertFromVersion29); }

    void updateToVersion30_data();
    void updateToVersion30() { checkStep(&M::updateToVersion30); }
    void revertFromVersion30_data();
    void revertFromVersion30() { checkStep(&M::revertFromVersion30); }

    void secondRun_data();
    void secondRun() { checkSecondRun(); }
};

void Versions29To30Test::updateToVersion29_data()
{
    const auto row = addColumns<StepRun>("run");

    // Every path ends with this line.
    const QStringList succeeded("Migration to version 29 was successful.");
    const QString table = "reverseSenseSettings";
    const QString temporary = "reverseSenseSettings_temp";
    const QByteArray filled = reverseSenseAt28 + reverseSenseRows;
    const QStringList rows = {"1, 1, 0", "8, 0, 1"};

    row("the columns become hardwired ones, the rows stay",
        {filled, succeeded, 29, QStringList({reverseSenseAt29, table}) + rows});
    row("existing hardwired columns stay as they are",
        {reverseSenseAt29 + reverseSenseRows + reverseSenseLeftOver,
         succeeded,
         29,
         QStringList(
             {reverseSenseAt29, "CREATE TABLE reverseSenseSettings_temp (mc_sqlId)", table}) +
             rows + QStringList(temporary)});
    row("the temporary table cannot be dropped, the step counts as done",
        {filled,
         tableStays(temporary, notAuthorized) + succeeded,
         29,
         QStringList(
             {renamed(reverseSenseAt28, "reverseSenseSettings_temp"),
              reverseSenseAt29,
              temporary}) +
             rows + QStringList(table) + rows,
         {{SQLITE_DROP_TABLE, "reverseSenseSettings_temp"}}});

    const QStringList notMoved(
        "Could not rename table to reverseSenseSettings_temp. Dropping temp table to allow Mirel "
        "to create new empty table.");
    row("there is no table", {"", notMoved + succeeded, 29, {}});
    row("there is only a temporary table: it is dropped",
        {reverseSenseLeftOver, notMoved + succeeded, 29, {}});
    row("a temporary table is in the way: both are dropped",
        {filled + reverseSenseLeftOver, notMoved + succeeded, 29, {}});
    row("a temporary table is in the way and the table cannot be dropped",
        {filled + reverseSenseLeftOver,
         notMoved + tableStays(table, notAuthorized) + succeeded,
         29,
         QStringList({reverseSenseAt28, table}) + rows,
         {{SQLITE_DROP_TABLE, "reverseSenseSettings"}}});
    row("a temporary table is in the way and cannot be dropped",
        {filled + reverseSenseLeftOver,
         notMoved + tableStays(temporary, notAuthorized) + succeeded,
         29,
         {"CREATE TABLE reverseSenseSettings_temp (mc_sqlId)", temporary},
         {{SQLITE_DROP_TABLE, "reverseSenseSettings_temp"}}});
    row("a view with the table's name cannot be renamed and stays",
        {"CREATE VIEW reverseSenseSettings AS SELECT 1 AS mc_sqlId",
         notMoved +
             tableStays(
                 table,
                 "use DROP VIEW to delete view reverseSenseSettings Unable to execute "
                 "statement") +
             succeeded,
         29,
         {"CREATE VIEW reverseSenseSettings AS SELECT 1 AS mc_sqlId"}});

    row("the new table cannot be created: the old one gets its name back",
        {filled,
         succeeded,
         29,
         QStringList({renamed(reverseSenseAt28, "reverseSenseSettings"), table}) + rows,
         {{SQLITE_CREATE_TABLE, "reverseSenseSettings"}}});
    const QStringList notMovedBack(
        "Could not rename table back to reverseSenseSettings while attempting to clean up upgrade "
        "failure. Dropping temp table to allow Mirel to create new empty table.");
    row("the new table cannot be created, the old one cannot be renamed: it is dropped",
        {filled,
         notMovedBack + succeeded,
         29,
         {},
         {{SQLITE_CREATE_TABLE, "reverseSenseSettings"},
          {SQLITE_ALTER_TABLE, "main", "reverseSenseSettings_temp"}}});
    row("the new table cannot be created, the old one cannot be renamed or dropped",
        {filled,
         notMovedBack + tableStays(temporary, notAuthorized) + succeeded,
         29,
         QStringList({renamed(reverseSenseAt28, "reverseSenseSettings_temp"), temporary}) + rows,
         {{SQLITE_CREATE_TABLE, "reverseSenseSettings"},
          {SQLITE_ALTER_TABLE, "main", "reverseSenseSettings_temp"},
          {SQLITE_DROP_TABLE, "reverseSenseSettings_temp"}}});

    const QByteArray nullable =
        "CREATE TABLE reverseSenseSettings (mc_sqlId, enableRemoteReverseSense, "
        "overrideRemoteReverseSenseDefaultDirection);"
        "INSERT INTO reverseSenseSettings VALUES(1, 1, 0), (8, NULL, 1);";
    const QStringList notCopied(
        "Failed inserting data from reverseSenseSettings_temp into new reverseSenseSettings.  "
        "Error was NOT NULL constraint failed: reverseSenseSettings.enableHardwiredReverseSense");
    row("a row cannot be copied: both tables are dropped",
        {nullable, notCopied + succeeded, 29, {}});
    row("a row cannot be copied and the new table cannot be dropped",
        {nullable,
         tableStays(table, notAuthorized) + notCopied + succeeded,
         29,
         {reverseSenseAt29, table},
         {{SQLITE_DROP_TABLE, "reverseSenseSettings"}}});
    row("a row cannot be copied and the old table cannot be dropped",
        {nullable,
         notCopied + tableStays(temporary, notAuthorized) + succeeded,
         29,
         {"CREATE TABLE \"reverseSenseSettings_temp\" (mc_sqlId, "
          "enableRemoteReverseSense, overrideRemoteReverseSenseDefaultDirection)",
          temporary,
          "1, 1, 0",
          "8, NULL, 1"},
         {{SQLITE_DROP_TABLE, "reverseSenseSettings_temp"}}});
    row("only the first column is hardwired: both tables are dropped",
        {"CREATE TABLE reverseSenseSettings (mc_sqlId, enableHardwiredReverseSense, "
         "overrideRemoteReverseSenseDefaultDirection)",
         QStringList("Failed inserting data from reverseSenseSettings_temp into new "
                     "reverseSenseSettings.  Error was no such column: "
                     "enableRemoteReverseSense") +
             succeeded,
         29,
         {}});
    row("only the second column is hardwired: both tables are dropped",
        {"CREATE TABLE reverseSenseSettings (mc_sqlId, enableRemoteReverseSense, "
         "overrideHardwiredReverseSenseDefaultDirection)",
         QStringList("Failed inserting data from reverseSenseSettings_temp into new "
                     "reverseSenseSettings.  Error was no such column: "
                     "overrideRemoteReverseSenseDefaultDirection") +
             succeeded,
         29,
         {}});
    addRowOfClosedConnection(
        notMoved + tableStays(table, "") + tableStays(temporary, "") + succeeded, 29);
}

void Versions29To30Test::revertFromVersion29_data()
{
    QTest::addColumn<StepRun>("run");

    const QStringList succeeded("Reverting from version 29 was successful.");
    const QStringList failed("Reverting from version 29 FAILED!!");
    const QString table = "reverseSenseSettings";
    const QString temporary = "reverseSenseSettings_temp";
    const QByteArray filled = reverseSenseAt29 + reverseSenseRows;
    const QStringList rows = {"1, 1, 0", "8, 0, 1"};

    QTest::newRow("the columns become remote ones, the rows stay")
        << StepRun{filled, succeeded, 28, QStringList({reverseSenseAt28, table}) + rows};
    QTest::newRow("the temporary table cannot be dropped, the step counts as done") << StepRun{
        filled,
        tableStays(temporary, notAuthorized) + succeeded,
        28,
        QStringList(
            {renamed(reverseSenseAt29, "reverseSenseSettings_temp"), reverseSenseAt28, temporary}) +
            rows + QStringList(table) + rows,
        {{SQLITE_DROP_TABLE, "reverseSenseSettings_temp"}}};

    const QStringList notMoved(
        "Could not rename table to reverseSenseSettings_temp. Attempting to drop both tables to "
        "allow Mirel to create new empty table.");
    QTest::newRow("there is no table") << StepRun{"", notMoved + failed, versionUnmoved, {}};
    QTest::newRow("a temporary table is in the way: both are dropped")
        << StepRun{filled + reverseSenseLeftOver, notMoved + failed, versionUnmoved, {}};
    QTest::newRow("a temporary table is in the way and neither can be dropped") << StepRun{
        filled + reverseSenseLeftOver,
        notMoved + tableStays(table, notAuthorized) + tableStays(temporary, notAuthorized) + failed,
        versionUnmoved,
        QStringList(
            {reverseSenseAt29, "CREATE TABLE reverseSenseSettings_temp (mc_sqlId)", table}) +
            rows + QStringList(temporary),
        {{SQLITE_DROP_TABLE, ""}}};

    QTest::newRow("the new table cannot be created: the old one gets its name back") << StepRun{
        filled,
        failed,
        versionUnmoved,
        QStringList({renamed(reverseSenseAt29, "reverseSenseSettings"), table}) + rows,
        {{SQLITE_CREATE_TABLE, "reverseSenseSettings"}}};
    const QStringList notMovedBack(
        "Could not rename table back to reverseSenseSettings while attempting to clean up revert "
        "failure. Dropping temp table to allow Mirel to create new empty table.");
    QTest::newRow("the new table cannot be created, the old one cannot be renamed: it is dropped")
        << StepRun{
               filled,
               notMovedBack + failed,
               versionUnmoved,
               {},
               {{SQLITE_CREATE_TABLE, "reverseSenseSettings"},
                {SQLITE_ALTER_TABLE, "main", "reverseSenseSettings_temp"}}};
    QTest::newRow("the new table cannot be created, the old one cannot be renamed or dropped")
        << StepRun{
               filled,
               notMovedBack + tableStays(temporary, notAuthorized) + failed,
               versionUnmoved,
               QStringList({renamed(reverseSenseAt29, "reverseSenseSettings_temp"), temporary}) +
                   rows,
               {{SQLITE_CREATE_TABLE, "reverseSenseSettings"},
                {SQLITE_ALTER_TABLE, "main", "reverseSenseSettings_temp"},
                {SQLITE_DROP_TABLE, "reverseSenseSettings_temp"}}};

    const QStringList notCopied(
        "Failed inserting data from reverseSenseSettings_temp into new reverseSenseSettings");
    QTest::newRow("the columns are remote ones already: both tables are dropped")
        << StepRun{reverseSenseAt28 + reverseSenseRows, notCopied + failed, versionUnmoved, {}};
    QTest::newRow("no row can be copied and no table dropped") << StepRun{
        reverseSenseAt28 + reverseSenseRows,
        tableStays(table, notAuthorized) + notCopied + tableStays(temporary, notAuthorized) +
            failed,
        versionUnmoved,
        QStringList(
            {renamed(reverseSenseAt28, "reverseSenseSettings_temp"), reverseSenseAt28, temporary}) +
            rows + QStringList(table),
        {{SQLITE_DROP_TABLE, ""}}};
    addRowOfClosedConnection(notMoved + tableStays(table, "") + tableStays(temporary, "") + failed);
}

void Versions29To30Test::updateToVersion30_data()
{
    const auto row = addColumns<StepRun>("run");

    const QString column = "wirelessEnabled";
    const QStringList succeeded("Migration to version 30 was successful.");
    const QStringList failed("Migration to version 30 FAILED!");
    row("the wireless switch is added, switched off",
        {controlAt29 + ";INSERT INTO systemControl VALUES(1, 'Europe/Berlin')",
         succeeded,
         30,
         {controlAt30, "systemControl", "1, 'Europe/Berlin', 0"}});
    row("an existing switch stays as it is",
        {controlAt30 + ";INSERT INTO systemControl VALUES(1, 'UTC', 1)",
         succeeded,
         30,
         {controlAt30, "systemControl", "1, 'UTC', 1"}});
    row("the switch is there in another letter case",
        {"CREATE TABLE systemControl (WirelessEnabled)",
         duplicateNotAdded(column, "systemControl") + failed,
         versionUnmoved,
         {"CREATE TABLE systemControl (WirelessEnabled)", "systemControl"}});
    row("there is no table",
        {"", notAddedToNothing(column, "systemControl") + failed, versionUnmoved, {}});
    addRowOfClosedConnection(notAdded(column, "systemControl", "") + failed);
}

void Versions29To30Test::revertFromVersion30_data()
{
    const auto row = addColumns<StepRun>("run");
    row("the wireless switch is dropped",
        {controlAt30 + ";INSERT INTO systemControl VALUES(1, 'Europe/Berlin', 1)",
         {},
         29,
         {controlRebuilt, "systemControl", "1, 'Europe/Berlin'"}});
    row("the switch is not there", {controlAt29, {}, 29, {controlRebuilt, "systemControl"}});
    row("there is no table",
        {"", columnStays("wirelessEnabled", "systemControl", rebuildRefused), versionUnmoved, {}});
    row("a view of a missing table has the table's name",
        {"CREATE VIEW systemControl AS SELECT * FROM gone",
         columnStays("wirelessEnabled", "systemControl", rebuildRefused),
         versionUnmoved,
         {"CREATE VIEW systemControl AS SELECT * FROM gone"}});
    addRowOfClosedConnection(columnStays("wirelessEnabled", "systemControl", ""));
}

void Versions29To30Test::secondRun_data()
{
    QTest::addColumn<Step>("step");
    QTest::addColumn<int>("version");
    QTest::addColumn<QStringList>("log");
    QTest::addColumn<QByteArray>("before");

    QTest::newRow("version 29") << Step(&M::updateToVersion29) << 29
                                << QStringList("Migration to version 29 was successful.")
                                << reverseSenseAt28 + reverseSenseRows;
    QTest::newRow("version 30") << Step(&M::updateToVersion30) << 30
                                << QStringList("Migration to version 30 was successful.")
                                << controlAt29 + ";INSERT INTO systemControl VALUES(1, 'UTC')";
}

QTEST_APPLESS_MAIN(Versions29To30Test)
#include "versions_29_to_30_test.moc"
