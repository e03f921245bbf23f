#include "support/step_test.h"

#include <QMap>
#include <QRegularExpression>
#include <QSet>

#include <sqlite3.h>

namespace
{
const Columns identifiers = {
    {"PC_Carrier", "uuid"},
    {"PC_Mix", "uuid"},
    {"PC_PlanterVariety", "uuid"},
};
const QMap<int, QString> defaultCarriers = {
    {1, "6925f16e-e25c-4768-bc50-8885c4baaa8f"},
    {2, "6f5e4750-b686-4d5a-ac6f-0dc2e3099b34"},
    {3, "0cdc8424-a0a6-4b01-aa23-8a6fe777f9db"},
    {4, "b502fba8-3905-4e80-a9e4-25656ee30ac2"},
    {5, "f036f28b-08cc-46c2-bfa7-1622ccc13636"},
    {6, "a35c4042-30d1-4c80-9f89-350805a41ed1"},
    {8, "9457de07-8236-4840-81d8-e8c9011c0f56"},
};
/// A version 4 identifier in braces, in lower case.
const QRegularExpression randomIdentifier(
    "\\{[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}\\}");

const QByteArray carriersAt30 = "CREATE TABLE PC_Carrier (id INTEGER PRIMARY KEY);";
const QByteArray mixesAt30 = "CREATE TABLE PC_Mix (id INTEGER PRIMARY KEY);";
const QByteArray varietiesAt30 = "CREATE TABLE PC_PlanterVariety (id INTEGER PRIMARY KEY);";
const QByteArray tablesAt30 = carriersAt30 + mixesAt30 + varietiesAt30;
const QByteArray tablesAt31 = "CREATE TABLE PC_Carrier (id INTEGER PRIMARY KEY, uuid TEXT);"
                              "CREATE TABLE PC_Mix (id INTEGER PRIMARY KEY, uuid TEXT);"
                              "CREATE TABLE PC_PlanterVariety (id INTEGER PRIMARY KEY, uuid TEXT);";
const QString carriersAt31 = "CREATE TABLE PC_Carrier (id INTEGER PRIMARY KEY, uuid TEXT)";
const QString mixesAt31 = "CREATE TABLE PC_Mix (id INTEGER PRIMARY KEY, uuid TEXT)";
const QString varietiesAt31 = "CREATE TABLE PC_PlanterVariety (id INTEGER PRIMARY KEY, uuid TEXT)";

} // namespace

class Versions31Test : public StepTest
{
    Q_OBJECT

private slots:
    void updateToVersion31_data();
    void updateToVersion31();
    void drawsIdentifiers();
    void revertFromVersion31_data();
    void revertFromVersion31() { checkStep(&M::revertFromVersion31); }
    void secondRun();
};

void Versions31Test::updateToVersion31_data()
{
    const auto row = addColumns<StepRun>("run");

    const QStringList succeeded("Migration to version 31 was successful.");
    const QStringList notSynched(
        "Migration to version 31 FAILED! Failed to synch default carrier uuids");
    const QByteArray oneRowEach = "INSERT INTO PC_Carrier(id) VALUES(9);"
                                  "INSERT INTO PC_Mix(id) VALUES(1);"
                                  "INSERT INTO PC_PlanterVariety(id) VALUES(1);";
    const QStringList carriers = {carriersAt31, "9, '{random}'"};
    const QStringList fixedCarriers = {
        carriersAt31,
        "1, '6925f16e-e25c-4768-bc50-8885c4baaa8f'",
        "2, '6f5e4750-b686-4d5a-ac6f-0dc2e3099b34'",
        "3, '0cdc8424-a0a6-4b01-aa23-8a6fe777f9db'",
        "4, 'b502fba8-3905-4e80-a9e4-25656ee30ac2'",
        "5, 'f036f28b-08cc-46c2-bfa7-1622ccc13636'",
        "6, 'a35c4042-30d1-4c80-9f89-350805a41ed1'"};
    const QStringList mixes = {mixesAt31, "1, '{random}'"};
    const QStringList varieties = {varietiesAt31, "1, '{random}'"};

    row("every row gets an identifier, the default carriers get their fixed ones",
        {tablesAt30 + "INSERT INTO PC_Carrier VALUES(1), (2), (3), (4), (5), (6), (7), (8), (9);"
                      "INSERT INTO PC_Mix VALUES(1), (8);"
                      "INSERT INTO PC_PlanterVariety VALUES(-1);",
         succeeded,
         31,
         fixedCarriers + QStringList{
                             "7, '{random}'",
                             "8, '9457de07-8236-4840-81d8-e8c9011c0f56'",
                             "9, '{random}'",
                             mixesAt31,
                             "1, '{random}'",
                             "8, '{random}'",
                             varietiesAt31,
                             "-1, '{random}'"}});
    row("existing identifiers stay, but those of the default carriers are overwritten",
        {tablesAt31 + "INSERT INTO PC_Carrier VALUES(1, 'a'), (2, 'b'), (3, ''), (4, 'd'), "
                      "(5, 'e'), (6, '{f}'), (7, 'g'), (8, 'h'), (9, '');"
                      "INSERT INTO PC_Mix VALUES(1, 'j'), (2, NULL);"
                      "INSERT INTO PC_PlanterVariety VALUES(1, NULL), (2, 'k');",
         succeeded,
         31,
         fixedCarriers + QStringList{
                             "7, 'g'",
                             "8, '9457de07-8236-4840-81d8-e8c9011c0f56'",
                             "9, ''",
                             mixesAt31,
                             "1, 'j'",
                             "2, '{random}'",
                             varietiesAt31,
                             "1, '{random}'",
                             "2, 'k'"}});
    row("the tables are empty",
        {tablesAt30, succeeded, 31, {carriersAt31, mixesAt31, varietiesAt31}});
    row("a row without an id gets no identifier",
        {carriersAt30 + "CREATE TABLE PC_Mix (id TEXT, uuid TEXT);" + varietiesAt30 +
             "INSERT INTO PC_Mix VALUES(NULL, NULL), ('m''1', NULL);",
         succeeded,
         31,
         {carriersAt31,
          "CREATE TABLE PC_Mix (id TEXT, uuid TEXT)",
          "NULL, NULL",
          "'m''1', '{random}'",
          varietiesAt31}});

    // It makes no difference whether the column was added and its rows were read.
    row("the column is there in another letter case",
        {carriersAt30 + "CREATE TABLE PC_Mix (id INTEGER PRIMARY KEY, UUID TEXT);" + varietiesAt30 +
             oneRowEach,
         duplicateNotAdded("uuid", "PC_Mix") + succeeded,
         31,
         carriers +
             QStringList(
                 {"CREATE TABLE PC_Mix (id INTEGER PRIMARY KEY, UUID TEXT)", "1, '{random}'"}) +
             varieties});
    row("the mixes' column cannot be added: the step succeeds without it",
        {tablesAt30 + oneRowEach,
         notAdded("uuid", "PC_Mix", notAuthorized) + succeeded,
         31,
         carriers + QStringList({"CREATE TABLE PC_Mix (id INTEGER PRIMARY KEY)", "1"}) + varieties,
         {{SQLITE_ALTER_TABLE, "main", "PC_Mix"}}});
    row("the mixes cannot be read: they get no identifiers",
        {tablesAt31 + oneRowEach,
         succeeded,
         31,
         carriers + QStringList({mixesAt31, "1, NULL"}) + varieties,
         {{SQLITE_READ, "PC_Mix", "uuid"}}});
    row("there are no mixes: the step succeeds without them",
        {carriersAt30 + varietiesAt30,
         notAddedToNothing("uuid", "PC_Mix") + succeeded,
         31,
         {carriersAt31, varietiesAt31}});
    row("there are no planter varieties: the step succeeds without them",
        {carriersAt30 + mixesAt30,
         notAddedToNothing("uuid", "PC_PlanterVariety") + succeeded,
         31,
         {carriersAt31, mixesAt31}});
    row("there are no carriers: the other tables are filled, the defaults fail",
        {mixesAt30 + varietiesAt30 +
             "INSERT INTO PC_Mix VALUES(1);"
             "INSERT INTO PC_PlanterVariety VALUES(1);",
         notAddedToNothing("uuid", "PC_Carrier") + notSynched,
         versionUnmoved,
         mixes + varieties});
    row("there is no table",
        {"", forEach(identifiers, notAddedToNothing) + notSynched, versionUnmoved, {}});

    // A batch that fails stops the step.
    const QByteArray rows = "INSERT INTO PC_Carrier VALUES(1), (9);"
                            "INSERT INTO PC_Mix VALUES(1), (2), (3);"
                            "INSERT INTO PC_PlanterVariety VALUES(1), (2);";
    const QStringList randomCarriers = {carriersAt31, "1, '{random}'", "9, '{random}'"};
    row("the carriers cannot be filled: everything else stays as it is",
        {tablesAt30 + rows + refusal("UPDATE ON PC_Carrier"),
         {"Migration to version 31 FAILED! Failed to add and populate PC_Carrier uuid "
          "column"},
         versionUnmoved,
         {carriersAt31,
          "1, NULL",
          "9, NULL",
          "CREATE TABLE PC_Mix (id INTEGER PRIMARY KEY)",
          "1",
          "2",
          "3",
          "CREATE TABLE PC_PlanterVariety (id INTEGER PRIMARY KEY)",
          "1",
          "2"}});
    row("the second mix cannot be filled: the default carriers stay random",
        {tablesAt30 + rows + refusal("UPDATE ON PC_Mix WHEN OLD.id = 2"),
         {"Migration to version 31 FAILED! Failed to add and populate PC_Mix uuid "
          "column"},
         versionUnmoved,
         randomCarriers + QStringList(
                              {mixesAt31,
                               "1, '{random}'",
                               "2, NULL",
                               "3, NULL",
                               "CREATE TABLE PC_PlanterVariety (id INTEGER PRIMARY KEY)",
                               "1",
                               "2"})});
    row("the last variety cannot be filled: the default carriers stay random",
        {tablesAt30 + rows + refusal("UPDATE ON PC_PlanterVariety WHEN OLD.id = 2"),
         {"Migration to version 31 FAILED! Failed to add and populate PC_PlanterVariety "
          "uuid column"},
         versionUnmoved,
         randomCarriers + QStringList(
                              {mixesAt31,
                               "1, '{random}'",
                               "2, '{random}'",
                               "3, '{random}'",
                               varietiesAt31,
                               "1, '{random}'",
                               "2, NULL"})});

    // Each of the seven defaults is set even where others fail.
    for (auto refused = defaultCarriers.begin(); refused != defaultCarriers.end(); ++refused) {
        QStringList after(carriersAt31);
        for (auto carrier = defaultCarriers.begin(); carrier != defaultCarriers.end(); ++carrier) {
            after << QString("%1, '%2'")
                         .arg(
                             QString::number(carrier.key()),
                             carrier.key() == refused.key() ? "{random}" : carrier.value());
        }
        QTest::addRow("default carrier %d cannot be set, the others are set", refused.key())
            << StepRun{
                   tablesAt30 +
                       "INSERT INTO PC_Carrier VALUES(1), (2), (3), (4), (5), (6), "
                       "(8);" +
                       refusal("UPDATE ON PC_Carrier WHEN NEW.uuid = '" + refused->toUtf8() + "'"),
                   notSynched,
                   versionUnmoved,
                   after + QStringList({mixesAt31, varietiesAt31})};
    }
    addRowOfClosedConnection(
        notAdded("uuid", "PC_Carrier", "") +
        QStringList(
            "Migration to version 31 FAILED! Failed to add and populate PC_Carrier uuid column"));
}

/// Each random identifier is read as '{random}'.
void Versions31Test::updateToVersion31()
{
    checkStep(&M::updateToVersion31, [this] {
        return device->contents({"PC_Carrier", "PC_Mix", "PC_PlanterVariety"})
            .replaceInStrings(
                QRegularExpression("'" + randomIdentifier.pattern() + "'"), "'{random}'");
    });
}

void Versions31Test::drawsIdentifiers()
{
    device->sql(tablesAt30 + "INSERT INTO PC_Carrier VALUES(7), (9), (10);");
    device->sql("WITH RECURSIVE ids(id) AS (SELECT 1 UNION ALL SELECT id + 1 FROM ids LIMIT 300)"
                "INSERT INTO PC_Mix SELECT id FROM ids");
    device->sql("INSERT INTO PC_PlanterVariety SELECT id FROM PC_Mix");
    QStringList identifiers;
    for (int run = 0; run < 2; ++run) {
        DatabaseMigrator &migrator = startAt(30);
        migrator.updateToVersion31();
        identifiers << device->rows("SELECT uuid FROM PC_Carrier UNION ALL SELECT uuid FROM PC_Mix "
                                    "UNION ALL SELECT uuid FROM PC_PlanterVariety");
        migrator.revertFromVersion31();
        QCOMPARE(migrator.currentVersion(), 30);
    }

    QCOMPARE(identifiers.size(), 2 * 603);
    for (const QString &identifier : identifiers) {
        QVERIFY2(
            QRegularExpression("^'" + randomIdentifier.pattern() + "'$")
                .match(identifier)
                .hasMatch(),
            qPrintable(identifier));
        QCOMPARE(identifier.size(), 2 + 38);
    }
    QCOMPARE(QSet<QString>(identifiers.begin(), identifiers.end()).size(), 2 * 603);
}

void Versions31Test::revertFromVersion31_data()
{
    const auto row = addColumns<StepRun>("run");

    const QStringList names = {"PC_Carrier", "PC_Mix", "PC_PlanterVariety"};
    const QString rebuilt = "CREATE TABLE \"%1\" (id INTEGER , PRIMARY KEY(id) )";
    row("the identifiers are dropped, the rows stay",
        {tablesAt31 + "INSERT INTO PC_Carrier VALUES(1, 'a'), (2, NULL);"
                      "INSERT INTO PC_Mix VALUES(3, 'b');"
                      "INSERT INTO PC_PlanterVariety VALUES(4, 'c');",
         {},
         30,
         {rebuilt.arg(names[0]),
          rebuilt.arg(names[1]),
          rebuilt.arg(names[2]),
          names[0],
          "1",
          "2",
          names[1],
          "3",
          names[2],
          "4"}});
    row("the identifiers are not there",
        {tablesAt30,
         {},
         30,
         {rebuilt.arg(names[0]),
          rebuilt.arg(names[1]),
          rebuilt.arg(names[2]),
          names[0],
          names[1],
          names[2]}});
    row("there is no table: all three are tried",
        {"", forEach(identifiers, columnStays, rebuildRefused), versionUnmoved, {}});
    for (const QString &missing : names) {
        QByteArray before;
        QStringList schema;
        QStringList others;
        for (const QString &name : names) {
            if (name != missing) {
                before += "CREATE TABLE " + name.toUtf8() + " (id INTEGER PRIMARY KEY, uuid TEXT);";
                schema << rebuilt.arg(name);
                others << name;
            }
        }
        QTest::addRow("there is no %s: the others lose their identifiers", qPrintable(missing))
            << StepRun{
                   before,
                   columnStays("uuid", missing, rebuildRefused),
                   versionUnmoved,
                   schema + others};
    }
    addRowOfClosedConnection(forEach(identifiers, columnStays, ""));
}

void Versions31Test::secondRun()
{
    device->sql(tablesAt30 + "INSERT INTO PC_Carrier VALUES(1), (9);INSERT INTO PC_Mix VALUES(1)");
    DatabaseMigrator &migrator = startAt(versionUnmoved);
    migrator.updateToVersion31();
    const QStringList afterFirst = device->dump();

    migrator.updateToVersion31();

    const QString succeeded = "Migration to version 31 was successful.";
    COMPARE_LINES(device->takeLogLines(), QStringList({succeeded, succeeded}));
    QCOMPARE(migrator.currentVersion(), 31);
    COMPARE_LINES(device->dump(), afterFirst);
}

QTEST_APPLESS_MAIN(Versions31Test)
#include "versions_31_test.moc"
