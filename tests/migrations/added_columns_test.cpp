#include "support/step_test.h"

// The common behaviour of versions 3 to 24 where they add columns.

namespace
{
/// A version that adds one column and does nothing else.
const struct {
    int version;
    struct {
        Step update;
        Step revert; ///< null if the column stays on the way back
    } steps;
    struct {
        QByteArray table;
        QByteArray name;
        QByteArray type;
        QByteArray value; ///< the value that every row gets
    } column;
    QStringList successLog;
    QStringList failureLog; ///< the lines that follow the schema toolkit's
    int versionAfterFailure;
} addedColumns[] = {
    {3,
     {&M::updateToVersion3, &M::revertFromVersion3},
     {"ombrixMasterSettings", "ombrixEnabled", "BOOLEAN DEFAULT 1", "1"},
     {"Database migration to version 3 completed successfully!"},
     {"Database migration to version 3 failed! Error was: "},
     versionUnmoved},
    {4,
     {&M::updateToVersion4, &M::revertFromVersion4},
     {"systemControl", "languageSelected", "BOOLEAN DEFAULT 0", "0"},
     {"Database migration to version 4 completed successfully!"},
     {},
     versionUnmoved},
    {5,
     {&M::updateToVersion5, &M::revertFromVersion5},
     {"MC_EquipmentSection", "fence", "INTEGER DEFAULT 0", "0"},
     {"Database migration to version 5 completed successfully!"},
     {},
     versionUnmoved},
    {6,
     {&M::updateToVersion6, nullptr},
     {"MC_EquipmentSectionGroup", "isoNodeName", "TEXT", "''"},
     {"Database migration to version 6 completed successfully!"},
     {"Database migration to version 6 completed successfully!"},
     6},
    {8,
     {&M::updateToVersion8, nullptr},
     {"userProfiles", "decimalMark", "VARCHAR(1)", "'.'"},
     {"Database migration to version 8 completed successfully!"},
     {"Database migration to version 8 completed successfully!"},
     8},
    {14,
     {&M::updateToVersion14, &M::revertFromVersion14},
     {"preferredGpsSolutions", "filterLevel", "INTEGER DEFAULT 1", "1"},
     {"Migration to version 14 was successful."},
     {"Migration to version 14 FAILED!"},
     versionUnmoved},
    {15,
     {&M::updateToVersion15, &M::revertFromVersion15},
     {"MC_EquipmentSectionGroup", "useEcuOffsets", "BOOLEAN DEFAULT 1", "1"},
     {"Migration to version 15 was successful."},
     {"Migration to version 15 FAILED!"},
     versionUnmoved},
    {18,
     {&M::updateToVersion18, &M::revertFromVersion18},
     {"JP_JobProfile", "guidanceType", "INTEGER DEFAULT 2", "2"},
     {"Migration to version 18 was successful."},
     {"Migration to version 18 FAILED!"},
     versionUnmoved},
};

/// Columns with their types, by the table's name.
using Tables = QMap<QString, QStringList>;

/// A version that adds several columns.
struct Version {
    Step update;
    Probe applied;
    Step revert;
    QByteArray otherTables; ///< other tables that its success needs
    Tables found;           ///< the columns that its tables have before
    Tables added;           ///< the columns that it adds to them
    QStringList updateLog;  ///< the lines that follow the failure to add one column
    QStringList revertLog;  ///< the lines that follow the failure to drop one
    int revertedTo;         ///< the version after that failure
};
const QMap<int, Version> versions = {
    {11,
     {&M::updateToVersion11,
      &M::getUpdate11Applied,
      &M::revertFromVersion11,
      "",
      {{"OutgoingFiles", {"id"}}, {"IncomingFiles", {"id"}}, {"FileTransferHistory", {"id"}}},
      {{"OutgoingFiles", {"startDate TEXT", "endDate TEXT"}},
       {"IncomingFiles", {"startDate TEXT", "endDate TEXT"}},
       {"FileTransferHistory", {"startDate TEXT", "endDate TEXT"}}},
      {"Migration to version 11 FAILED!"},
      {},
      10}},
    {12,
     {&M::updateToVersion12,
      &M::getUpdate12Applied,
      &M::revertFromVersion12,
      "CREATE TABLE switchToSectionBridge (machine, section, switch)",
      {{"MC_EquipmentSection", {"id"}}, {"MC_EquipmentSectionGroup", {"id"}}},
      {{"MC_EquipmentSection",
        {"parentEquipmentSectionId INTEGER DEFAULT 0",
         "sectionType INTEGER DEFAULT 0",
         "fullName TEXT"}},
       {"MC_EquipmentSectionGroup", {"hashForIsoBoom TEXT"}}},
      {"Switch to section mapping data copied successfully while migrating database to version 12!",
       "Migration to version 12 FAILED!"},
      {},
      11}},
    {22,
     {&M::updateToVersion22,
      &M::getUpdate22Applied,
      &M::revertFromVersion22,
      "",
      {{"growers", {"id"}}, {"farms", {"id"}}, {"fields", {"id"}}},
      {{"growers", {"isoId TEXT", "isoName TEXT"}},
       {"farms", {"isoId TEXT", "isoName TEXT"}},
       {"fields", {"isoId TEXT", "isoName TEXT", "partfieldCode TEXT"}}},
      {"Migration to version 22 FAILED!"},
      {},
      versionUnmoved}},
    {23,
     {&M::updateToVersion23,
      &M::getUpdate23Applied,
      &M::revertFromVersion23,
      "",
      {{"PC_Ingredient", {"id", "unit"}},
       {"PC_Mix", {"id", "carrierVolume"}},
       {"PC_IngredientToMixBridge", {"id", "mixId", "productId", "quantity"}},
       {"productControl_userProfile", {"id"}}},
      {{"PC_Mix",
        {"modified INTEGER DEFAULT 0",
         "configMode INTEGER DEFAULT 0",
         "displayUnit INTEGER DEFAULT 0",
         "totalRate REAL"}},
       {"PC_IngredientToMixBridge", {"rate REAL", "displayUnit INTEGER DEFAULT 0"}},
       {"productControl_userProfile", {"mixSetupMode INTEGER"}}},
      {"Migration to version 23 FAILED!"},
      {},
      versionUnmoved}},
    {24,
     {&M::updateToVersion24,
      &M::getUpdate24Applied,
      &M::revertFromVersion24,
      "",
      {{"ombrixMasterSettings", {"id"}}},
      {{"ombrixMasterSettings",
        {"onCorrectedCoverageEnabled BOOLEAN DEFAULT 0",
         "offCorrectedCoverageEnabled BOOLEAN DEFAULT 0"}}},
      {"Migration to version 24 FAILED!"},
      {"Failed to revert from version 24 to 23"},
      versionUnmoved}},
};

Tables joined(Tables tables, const Tables &more)
{
    for (auto table = more.begin(); table != more.end(); ++table) {
        tables[table.key()] << table.value();
    }
    return tables;
}

QString nameOf(const QString &column)
{
    return column.section(' ', 0, 0);
}

/// @param key the columns of one table's primary key; the others' is their id
QByteArray createStatements(
    const Tables &tables, const QString &keyTable = QString(), const QString &key = QString())
{
    QString statements;
    for (auto table = tables.begin(); table != tables.end(); ++table) {
        statements += "CREATE TABLE " + table.key() + " (" + table->join(", ") + ", PRIMARY KEY (" +
                      (table.key() == keyTable ? key : "id") + "));";
    }
    return statements.toUtf8();
}

/// @return every table's name and the names of its columns, as `readColumns` returns them
QStringList columnsOf(const Tables &tables)
{
    QStringList lines;
    for (auto table = tables.begin(); table != tables.end(); ++table) {
        lines << table.key();
        for (const QString &column : *table) {
            lines << "'" + nameOf(column) + "'";
        }
    }
    return lines;
}

/// A row for every column that each of the versions adds.
void addRowPerColumn(const QList<int> &chosenVersions)
{
    QTest::addColumn<int>("version");
    QTest::addColumn<QString>("table");
    QTest::addColumn<QString>("column");
    for (const int version : chosenVersions) {
        const Tables &added = versions[version].added;
        for (auto table = added.begin(); table != added.end(); ++table) {
            for (const QString &column : *table) {
                QTest::addRow(
                    "version %d, %s.%s",
                    version,
                    qPrintable(table.key()),
                    qPrintable(nameOf(column)))
                    << version << table.key() << column;
            }
        }
    }
}
} // namespace

class AddedColumnsTest : public StepTest
{
    Q_OBJECT

private slots:
    void updateThatAddsAColumn_data();
    void updateThatAddsAColumn() { checkStep(); }
    void revertThatDropsAColumn_data();
    void revertThatDropsAColumn() { checkStep(); }
    void secondRun_data();
    void secondRun() { checkSecondRun(); }

    void addsTheOtherColumns_data() { addRowPerColumn({11, 12, 22, 23, 24}); }
    void addsTheOtherColumns();
    void dropsTheOtherColumns_data() { addRowPerColumn({11, 12, 22, 23, 24}); }
    void dropsTheOtherColumns();
    void looksForEveryColumn_data() { addRowPerColumn({22, 23, 24}); }
    void looksForEveryColumn();

private:
    QStringList readColumns(const Tables &tables);
};

/// @return the name of each of the tables and the names of its columns
QStringList AddedColumnsTest::readColumns(const Tables &tables)
{
    QStringList lines;
    for (const QString &table : tables.keys()) {
        lines << table
              << device->rows("SELECT name FROM pragma_table_info('" + table.toUtf8() + "')");
    }
    return lines;
}

void AddedColumnsTest::updateThatAddsAColumn_data()
{
    QTest::addColumn<Step>("step");
    QTest::addColumn<StepRun>("run");

    for (const auto &added : addedColumns) {
        const auto row = [&](const char *sentence, const StepRun &run) {
            QTest::addRow("version %d: %s", added.version, sentence) << added.steps.update << run;
        };
        const QByteArray table =
            "CREATE TABLE " + added.column.table + " (id INTEGER PRIMARY KEY, a TEXT";
        const QByteArray insert = ";INSERT INTO " + added.column.table + " VALUES";
        const QByteArray capitals = added.column.name.toUpper();
        const QStringList duplicateLog =
            addedBefore(added.column.name, added.column.table) + added.failureLog;
        row("every row gets the value",
            {table + ")" + insert + "(1, 'Süd'), (7, NULL)",
             added.successLog,
             added.version,
             {table + ", " + added.column.name + " " + added.column.type + ")",
              added.column.table,
              "1, 'Süd', " + added.column.value,
              "7, NULL, " + added.column.value}});
        row("a column that is there keeps its values",
            {table + ", " + added.column.name + " TEXT)" + insert + "(1, '', 'x'), (2, '', NULL)",
             duplicateLog,
             added.versionAfterFailure,
             {table + ", " + added.column.name + " TEXT)",
              added.column.table,
              "1, '', 'x'",
              "2, '', NULL"}});
        row("the column is there in another letter case",
            {table + ", " + capitals + ")" + insert + "(1, '', 'x')",
             duplicateLog,
             added.versionAfterFailure,
             {table + ", " + capitals + ")", added.column.table, "1, '', 'x'"}});
        row("there is no table",
            {"",
             addedToNothing(added.column.name, added.column.table) + added.failureLog,
             added.versionAfterFailure,
             {}});
        row("the database is not open",
            {"",
             newColumnNotAdded(added.column.name, added.column.table, "") + added.failureLog,
             added.versionAfterFailure,
             {},
             {},
             Connection::Closed});
    }
}

void AddedColumnsTest::revertThatDropsAColumn_data()
{
    QTest::addColumn<Step>("step");
    QTest::addColumn<StepRun>("run");

    for (const auto &added : addedColumns) {
        if (added.steps.revert == nullptr) {
            continue;
        }
        const auto row = [&](const char *sentence, const StepRun &run) {
            QTest::addRow("version %d: %s", added.version, sentence) << added.steps.revert << run;
        };
        const QByteArray table =
            "CREATE TABLE " + added.column.table + " (id INTEGER PRIMARY KEY, a TEXT";
        const QByteArray insert = ";INSERT INTO " + added.column.table + " VALUES";
        const QByteArray rebuilt =
            "CREATE TABLE \"" + added.column.table + "\" (id INTEGER , a TEXT , PRIMARY KEY(id) )";
        const QByteArray copy = "CREATE TABLE " + added.column.table + "_temp (b)";
        const auto stays = [&](const QString &error) {
            return columnStays(added.column.name, added.column.table, error);
        };
        row("the column is dropped, the rows stay",
            {table + ", " + added.column.name + " " + added.column.type + ")" + insert +
                 "(1, 'Süd', 1), (7, NULL, 0)",
             {},
             added.version - 1,
             {rebuilt, added.column.table, "1, 'Süd'", "7, NULL"}});
        row("a column in another letter case is dropped too",
            {table + ", " + added.column.name.toUpper() + ")" + insert + "(1, 'Süd', 1)",
             {},
             added.version - 1,
             {rebuilt, added.column.table, "1, 'Süd'"}});
        row("without the column the table is rebuilt too",
            {table + ")" + insert + "(1, 'Süd')",
             {},
             added.version - 1,
             {rebuilt, added.column.table, "1, 'Süd'"}});
        row("an earlier rebuild left its copy",
            {table + ", " + added.column.name + ");" + copy,
             stays(copyInTheWay(added.column.table)),
             versionUnmoved,
             {table + ", " + added.column.name + ")",
              copy,
              added.column.table,
              added.column.table + "_temp"}});
        row("there is no table", {"", stays(rebuildRefused), versionUnmoved, {}});
        row("the database is not open",
            {"", stays(""), versionUnmoved, {}, {}, Connection::Closed});
    }
}

void AddedColumnsTest::secondRun_data()
{
    QTest::addColumn<Step>("step");
    QTest::addColumn<int>("version");
    QTest::addColumn<QStringList>("log");
    QTest::addColumn<QByteArray>("before");

    for (const auto &added : addedColumns) {
        const QByteArray table = "CREATE TABLE " + added.column.table +
                                 " (id INTEGER PRIMARY KEY, a TEXT);INSERT INTO " +
                                 added.column.table + " VALUES(1, 'Süd');";
        QTest::addRow("forward, version %d: the column is there", added.version)
            << added.steps.update << added.version
            << addedBefore(added.column.name, added.column.table) + added.failureLog << table;
        if (added.steps.revert != nullptr) {
            QTest::addRow("backward, version %d: the table is rebuilt as it is", added.version)
                << added.steps.revert << added.version - 1 << QStringList()
                << table + "ALTER TABLE " + added.column.table + " ADD COLUMN " + added.column.name;
        }
    }
}

/// One column is there in capitals. Its step does not see it and cannot add it.
void AddedColumnsTest::addsTheOtherColumns()
{
    QFETCH(int, version);
    QFETCH(QString, table);
    QFETCH(QString, column);
    const Version &tested = versions[version];
    Tables before = tested.found;
    before[table] << column.toUpper();
    Tables others = tested.added;
    others[table].removeOne(column);
    device->sql(createStatements(before) + tested.otherTables);
    DatabaseMigrator &migrator = startAt(versionUnmoved);

    (migrator.*tested.update)();

    const auto failure = version < 20 ? newColumnNotAdded : notAdded;
    COMPARE_LINES(
        device->takeLogLines(),
        failure(nameOf(column), table, duplicateColumn(nameOf(column))) + tested.updateLog);
    QCOMPARE(migrator.currentVersion(), versionUnmoved);
    COMPARE_LINES(readColumns(tested.found), columnsOf(joined(before, others)));
}

/// One column comes first in its table's key, so the table cannot be rebuilt without it.
void AddedColumnsTest::dropsTheOtherColumns()
{
    QFETCH(int, version);
    QFETCH(QString, table);
    QFETCH(QString, column);
    const Version &tested = versions[version];
    const QString name = nameOf(column);
    device->sql(createStatements(joined(tested.found, tested.added), table, name + ", id"));
    DatabaseMigrator &migrator = startAt(versionUnmoved);

    (migrator.*tested.revert)();

    COMPARE_LINES(device->takeLogLines(), columnStays(name, table, keyRefused) + tested.revertLog);
    QCOMPARE(migrator.currentVersion(), tested.revertedTo);
    COMPARE_LINES(readColumns(tested.found), columnsOf(joined(tested.found, {{table, {column}}})));
}

void AddedColumnsTest::looksForEveryColumn()
{
    QFETCH(int, version);
    QFETCH(QString, table);
    QFETCH(QString, column);
    const Version &tested = versions[version];
    device->sql(createStatements(joined(tested.found, tested.added)));
    const DatabaseMigrator &migrator = startAt(versionUnmoved);
    const QByteArray alteration = "ALTER TABLE " + table.toUtf8();
    const QByteArray name = nameOf(column).toUtf8();

    QVERIFY((migrator.*tested.applied)());
    device->sql(alteration + " RENAME COLUMN " + name + " TO " + name.toUpper());
    QVERIFY2(!(migrator.*tested.applied)(), "in another letter case");
    device->sql(alteration + " DROP COLUMN " + name);
    QVERIFY2(!(migrator.*tested.applied)(), "missing");

    COMPARE_LINES(device->takeLogLines(), QStringList());
}

QTEST_APPLESS_MAIN(AddedColumnsTest)
#include "added_columns_test.moc"
