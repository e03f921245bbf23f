#include "support/step_test.h"

#include <QtTest>

namespace
{
using M = DatabaseMigrator;
/// A version that adds one column and does nothing else.
const struct {
    int version;
    Step update;
    Probe applied;
    Step revert;
    QByteArray table;
    QByteArray column;
    QByteArray type;
    QByteArray value; ///< what every row gets
    QString successLine;
    QString failureLine;
} addedColumns[] = {
    {14,
     &M::updateToVersion14,
     &M::getUpdate14Applied,
     &M::revertFromVersion14,
     "preferredGpsSolutions",
     "filterLevel",
     "INTEGER DEFAULT 1",
     "1",
     "Migration to version 14 was successful.",
     "Migration to version 14 FAILED!"},
    {15,
     &M::updateToVersion15,
     &M::getUpdate15Applied,
     &M::revertFromVersion15,
     "MC_EquipmentSectionGroup",
     "useEcuOffsets",
     "BOOLEAN DEFAULT 1",
     "1",
     "Migration to version 15 was successful.",
     "Migration to version 15 FAILED!"},
    {18,
     &M::updateToVersion18,
     &M::getUpdate18Applied,
     &M::revertFromVersion18,
     "JP_JobProfile",
     "guidanceType",
     "INTEGER DEFAULT 2",
     "2",
     "Migration to version 18 was successful.",
     "Migration to version 18 FAILED!"},
};

// The profiles of versions 13 and 20, without their columns, and what a rebuild leaves.
const QByteArray profiles = "CREATE TABLE userProfiles (id INTEGER PRIMARY KEY, userName TEXT";
const QString profilesRebuilt =
    "CREATE TABLE \"userProfiles\" (id INTEGER , userName TEXT , PRIMARY KEY(id) )";
const QByteArray sounds = ", audibleBackingUpWarningEnabled BOOLEAN, audioVolumePercent REAL)";

// The profiles of version 16, and what their language becomes.
const QByteArray speakers = "CREATE TABLE userProfiles (id INTEGER PRIMARY KEY, language TEXT)";
const QByteArray languages = "CREATE TABLE languages (code TEXT)";
using Languages = QVector<QPair<QString, QString>>;
const Languages localesOfLanguages = {
    {"en", "en-US"},
    {"es", "es-ES"},
    {"fr", "fr-FR"},
    {"de", "de-DE"},
    {"ru", "ru-RU"},
    {"pt", "pt-BR"},
};
const Languages languagesOfLocales = {
    {"en-US", "en"},
    {"es-ES", "es"},
    {"fr-FR", "fr"},
    {"fr-CA", "fr"},
    {"de-DE", "de"},
    {"ru-RU", "ru"},
    {"pt-BR", "pt"},
};

// The receivers of version 17 under both names, as they were made and after a rebuild.
const QByteArray internalReceivers =
    "CREATE TABLE internalGpsReceiverSettings (id INTEGER PRIMARY KEY, baudRate INTEGER";
const QByteArray supportedReceivers =
    "CREATE TABLE supportedHarloReceiverSettings (id INTEGER PRIMARY KEY, baudRate INTEGER";
const QByteArray receiversRenamed =
    "CREATE TABLE \"supportedHarloReceiverSettings\" (id INTEGER PRIMARY KEY, baudRate INTEGER";
const QByteArray receiversRebuilt = " (id INTEGER , baudRate INTEGER , PRIMARY KEY(id) )";

// The tables of version 19.
const QByteArray machines = "CREATE TABLE MC_MachineConfig (id INTEGER PRIMARY KEY)";
const QByteArray switches =
    "CREATE TABLE onScreenSwitchboxConfig (machineConfigId INTEGER, sectionId INTEGER, "
    "switchId INTEGER, PRIMARY KEY (machineConfigId, sectionId), FOREIGN KEY (machineConfigId) "
    "REFERENCES MC_MachineConfig(id) ON DELETE CASCADE)";
const QByteArray labels =
    "CREATE TABLE onScreenSwitchboxSwitchLabels (machineConfigId INTEGER, switchId INTEGER, "
    "switchLabel varchar(3), PRIMARY KEY (machineConfigId, switchId), FOREIGN KEY "
    "(machineConfigId) REFERENCES MC_MachineConfig(id) ON DELETE CASCADE)";
const QByteArray mapping =
    "CREATE TABLE onScreenSwitchboxToMachineMapping(machineConfigId INTEGER PRIMARY KEY, "
    "boomStringRepresentation TEXT, FOREIGN KEY (machineConfigId) REFERENCES MC_MachineConfig(id) "
    "ON DELETE CASCADE)";

/// What versions 13 to 20 find, with a row in each table.
const QByteArray tablesAt12 = profiles + ", language TEXT);" + machines + ";" + switches + ";" +
                              labels + ";" + languages + ";" + internalReceivers +
                              ");"
                              "CREATE TABLE SoftwareUpdateTable (id INTEGER PRIMARY KEY);"
                              "CREATE TABLE SoftwareVersion (id INTEGER PRIMARY KEY);"
                              "CREATE TABLE SoftwareUpdates (id INTEGER PRIMARY KEY);"
                              "CREATE TABLE preferredGpsSolutions (id INTEGER PRIMARY KEY);"
                              "CREATE TABLE MC_EquipmentSectionGroup (id INTEGER PRIMARY KEY);"
                              "CREATE TABLE JP_JobProfile (id INTEGER PRIMARY KEY);"
                              "INSERT INTO userProfiles VALUES(1, 'Петров', 'ru');"
                              "INSERT INTO MC_MachineConfig VALUES(1);"
                              "INSERT INTO onScreenSwitchboxConfig VALUES(1, 10, 0);"
                              "INSERT INTO onScreenSwitchboxSwitchLabels VALUES(1, 0, 'S1');"
                              "INSERT INTO languages VALUES('ru');"
                              "INSERT INTO internalGpsReceiverSettings VALUES(1, 38400);"
                              "INSERT INTO SoftwareUpdateTable VALUES(1);"
                              "INSERT INTO SoftwareVersion VALUES(1);"
                              "INSERT INTO SoftwareUpdates VALUES(1);"
                              "INSERT INTO preferredGpsSolutions VALUES(1);"
                              "INSERT INTO MC_EquipmentSectionGroup VALUES(1);"
                              "INSERT INTO JP_JobProfile VALUES(1);";

QByteArray viewInPlaceOf(const QByteArray &table)
{
    return "CREATE VIEW " + table + " AS SELECT 1 AS id";
}

QString viewStays(const QString &view)
{
    return "use DROP VIEW to delete view " + view + " Unable to execute statement";
}

QString columnThere(const QString &column)
{
    return "duplicate column name: " + column + " Unable to execute statement";
}

/// Profiles numbered from 1 that speak the languages.
QByteArray insertSpeakers(const QStringList &languagesSpoken)
{
    QStringList rows;
    for (const QString &language : languagesSpoken) {
        rows << QString("(%1, '%2')").arg(QString::number(rows.size() + 1), language);
    }
    return "INSERT INTO userProfiles VALUES" + rows.join(", ").toUtf8() + ";";
}

QStringList speakersOf(const QStringList &languagesSpoken)
{
    QStringList rows("userProfiles");
    for (const QString &language : languagesSpoken) {
        rows << QString("%1, '%2'").arg(QString::number(rows.size()), language);
    }
    return rows;
}

QByteArray refusalToChange(const QString &language)
{
    return "CREATE TRIGGER refusal BEFORE UPDATE ON userProfiles WHEN OLD.language = '" +
           language.toUtf8() + "' BEGIN SELECT RAISE(ABORT, 'refused'); END";
}

/// Writes down every change of a language, as long as the table of languages is there with a row.
const QByteArray changes = "CREATE TABLE changes (found TEXT, left TEXT)";
const QByteArray watchingChanges =
    "CREATE TRIGGER watching AFTER UPDATE ON userProfiles BEGIN "
    "INSERT INTO changes SELECT OLD.language, NEW.language FROM languages; END";
} // namespace

class Versions13To20Test : public QObject
{
    Q_OBJECT

private slots:
    void init() { device = std::make_unique<ScratchDevice>(); }
    void cleanup() { device.reset(); }

    void updateToVersion13_data();
    void updateToVersion13() { checkStep(*device, &M::updateToVersion13); }
    void revertFromVersion13_data();
    void revertFromVersion13() { checkStep(*device, &M::revertFromVersion13); }
    void updateThatAddsAColumn_data();
    void updateThatAddsAColumn();
    void revertThatDropsAColumn_data();
    void revertThatDropsAColumn();
    void updateToVersion16_data();
    void updateToVersion16() { checkStep(*device, &M::updateToVersion16); }
    void revertFromVersion16_data();
    void revertFromVersion16() { checkStep(*device, &M::revertFromVersion16); }
    void canadianFrenchBecomesFrenchOfFrance();
    void updateToVersion17_data();
    void updateToVersion17() { checkStep(*device, &M::updateToVersion17); }
    void revertFromVersion17_data();
    void revertFromVersion17() { checkStep(*device, &M::revertFromVersion17); }
    void updateToVersion19_data();
    void updateToVersion19() { checkStep(*device, &M::updateToVersion19); }
    void revertFromVersion19_data();
    void revertFromVersion19() { checkStep(*device, &M::revertFromVersion19); }
    void updateToVersion20_data();
    void updateToVersion20() { checkStep(*device, &M::updateToVersion20); }
    void revertFromVersion20_data();
    void revertFromVersion20() { checkStep(*device, &M::revertFromVersion20); }
    void secondUpdate_data();
    void secondUpdate();
    void secondRevert_data();
    void secondRevert();
    void backFrom20To12AndForwardAgain();
    void probes_data();
    void probes();
    void stepsOnAClosedConnection_data();
    void stepsOnAClosedConnection() { checkStepOnAClosedConnection(*device); }
    void probesOnAClosedConnection();

private:
    void runTwice(DatabaseMigrator &migrator);
    DatabaseMigrator &startAt20();

    std::unique_ptr<ScratchDevice> device;
};

/// Runs a step once, and once more as the test's row says: the second run changes nothing.
void Versions13To20Test::runTwice(DatabaseMigrator &migrator)
{
    QFETCH(Step, step);
    QFETCH(int, version);
    QFETCH(QStringList, log);
    (migrator.*step)();
    QCOMPARE(migrator.currentVersion(), version);
    device->takeLog();
    const QStringList before = device->dump();

    (migrator.*step)();

    COMPARE_LINES(takeLogLines(*device), log);
    QCOMPARE(migrator.currentVersion(), version);
    COMPARE_LINES(device->dump(), before);
}

/// Walks the tables of version 12 to version 20.
DatabaseMigrator &Versions13To20Test::startAt20()
{
    device->sql(tablesAt12);
    DatabaseMigrator &migrator = startAt(*device, 12);
    migrator.updateToVersion13();
    migrator.updateToVersion14();
    migrator.updateToVersion15();
    migrator.updateToVersion16();
    migrator.updateToVersion17();
    migrator.updateToVersion18();
    migrator.updateToVersion19();
    migrator.updateToVersion20();
    return migrator;
}

void Versions13To20Test::updateToVersion13_data()
{
    const QByteArray updates = "CREATE TABLE SoftwareUpdateTable (id INTEGER PRIMARY KEY);";
    const QByteArray updatesView = viewInPlaceOf("SoftwareUpdateTable");
    const QByteArray licence = ", acceptedEULA BOOLEAN DEFAULT 0)";

    const QStringList succeeded("Migration to version 13 was successful.");
    const QStringList failed("Migration to version 13 FAILED!");
    const QStringList updatesStay =
        tableStays("SoftwareUpdateTable", viewStays("SoftwareUpdateTable"));

    QTest::addColumn<StepRun>("run");

    QTest::newRow("the updates go, no profile has accepted the licence") << StepRun{
        updates + profiles +
            ");INSERT INTO SoftwareUpdateTable VALUES(1), (2);"
            "INSERT INTO userProfiles VALUES(1, 'Müller'), (7, NULL);",
        succeeded,
        13,
        {profiles + licence, "userProfiles", "1, 'Müller', 0", "7, NULL, 0"}};
    QTest::newRow("there are no updates")
        << StepRun{profiles + ")", succeeded, 13, {profiles + licence, "userProfiles"}};
    QTest::newRow("the tables of the backward step stay") << StepRun{
        "CREATE TABLE SoftwareVersion (id);CREATE TABLE SoftwareUpdates (id);" + profiles +
            ");INSERT INTO SoftwareVersion VALUES(1);"
            "INSERT INTO SoftwareUpdates VALUES(2);",
        succeeded,
        13,
        {"CREATE TABLE SoftwareVersion (id)",
         "CREATE TABLE SoftwareUpdates (id)",
         profiles + licence,
         "SoftwareVersion",
         "1",
         "SoftwareUpdates",
         "2",
         "userProfiles"}};
    QTest::newRow("the updates stay: the licence is added all the same") << StepRun{
        updatesView + ";" + profiles + ");INSERT INTO userProfiles VALUES(1, 'Müller')",
        updatesStay + failed,
        versionUnmoved,
        {updatesView, profiles + licence, "userProfiles", "1, 'Müller', 0"}};
    QTest::newRow("the licence is there: the updates go all the same") << StepRun{
        updates + profiles + licence + ";INSERT INTO userProfiles VALUES(1, 'Müller', 1)",
        newColumnNotAdded("acceptedEULA", "userProfiles", columnThere("acceptedEULA")) + failed,
        versionUnmoved,
        {profiles + licence, "userProfiles", "1, 'Müller', 1"}};
    QTest::newRow("the licence is there in another letter case") << StepRun{
        updates + profiles + ", ACCEPTEDEULA)",
        newColumnNotAdded("acceptedEULA", "userProfiles", columnThere("acceptedEULA")) + failed,
        versionUnmoved,
        {profiles + ", ACCEPTEDEULA)", "userProfiles"}};
    QTest::newRow("both fail, in this order") << StepRun{
        updatesView,
        updatesStay +
            newColumnNotAdded("acceptedEULA", "userProfiles", noSuchTable("userProfiles")) + failed,
        versionUnmoved,
        {updatesView}};
}

void Versions13To20Test::revertFromVersion13_data()
{
    const QByteArray software = "CREATE TABLE SoftwareVersion (id);";
    const QByteArray updates = "CREATE TABLE SoftwareUpdates (id);";
    const QByteArray softwareView = viewInPlaceOf("SoftwareVersion");
    const QByteArray updatesView = viewInPlaceOf("SoftwareUpdates");
    const QByteArray licensed = profiles + ", acceptedEULA BOOLEAN DEFAULT 0);"
                                           "INSERT INTO userProfiles VALUES(1, 'Müller', 1);";
    const QByteArray copy = "CREATE TABLE userProfiles_temp (a)";

    const QStringList softwareStays = tableStays("SoftwareVersion", viewStays("SoftwareVersion"));
    const QStringList updatesStay = tableStays("SoftwareUpdates", viewStays("SoftwareUpdates"));

    QTest::addColumn<StepRun>("run");

    QTest::newRow("the licence goes, and two tables with it") << StepRun{
        software + updates + licensed +
            "INSERT INTO userProfiles VALUES(7, NULL, 0);"
            "INSERT INTO SoftwareVersion VALUES(1);INSERT INTO SoftwareUpdates VALUES(2);",
        {},
        12,
        {profilesRebuilt, "userProfiles", "1, 'Müller'", "7, NULL"}};
    QTest::newRow("there is nothing but the profiles")
        << StepRun{profiles + ")", {}, 12, {profilesRebuilt, "userProfiles"}};
    QTest::newRow("the table of the forward step stays") << StepRun{
        "CREATE TABLE SoftwareUpdateTable (id);" + licensed,
        {},
        12,
        {"CREATE TABLE SoftwareUpdateTable (id)",
         profilesRebuilt,
         "SoftwareUpdateTable",
         "userProfiles",
         "1, 'Müller'"}};
    QTest::newRow("the software's version stays: the rest goes all the same") << StepRun{
        softwareView + ";" + updates + licensed,
        softwareStays,
        versionUnmoved,
        {softwareView, profilesRebuilt, "userProfiles", "1, 'Müller'"}};
    QTest::newRow("the software's updates stay: the rest goes all the same") << StepRun{
        software + updatesView + ";" + licensed,
        updatesStay,
        versionUnmoved,
        {updatesView, profilesRebuilt, "userProfiles", "1, 'Müller'"}};
    QTest::newRow("the licence stays: the rest goes all the same") << StepRun{
        software + updates + licensed + copy,
        columnStays("acceptedEULA", "userProfiles", copyInTheWay("userProfiles")),
        versionUnmoved,
        {profiles + ", acceptedEULA BOOLEAN DEFAULT 0)",
         copy,
         "userProfiles",
         "1, 'Müller', 1",
         "userProfiles_temp"}};
    QTest::newRow("all three fail, in this order") << StepRun{
        softwareView + ";" + updatesView,
        softwareStays + updatesStay + columnStays("acceptedEULA", "userProfiles", rebuildRefused),
        versionUnmoved,
        {softwareView, updatesView}};
}

void Versions13To20Test::updateThatAddsAColumn_data()
{
    QTest::addColumn<Step>("step");
    QTest::addColumn<StepRun>("run");

    for (const auto &added : addedColumns) {
        const QByteArray table = "CREATE TABLE " + added.table + " (id INTEGER PRIMARY KEY, a TEXT";
        const QByteArray insert = ";INSERT INTO " + added.table + " VALUES";
        const QStringList there =
            newColumnNotAdded(added.column, added.table, columnThere(added.column)) +
            QStringList(added.failureLine);
        QTest::addRow("version %d: every row gets the value", added.version)
            << added.update
            << StepRun{
                   table + ")" + insert + "(1, 'Süd'), (7, NULL)",
                   {added.successLine},
                   added.version,
                   {table + ", " + added.column + " " + added.type + ")",
                    added.table,
                    "1, 'Süd', " + added.value,
                    "7, NULL, " + added.value}};
        QTest::addRow("version %d: a column that is there keeps its values", added.version)
            << added.update
            << StepRun{
                   table + ", " + added.column + " TEXT)" + insert + "(1, '', 'x'), (2, '', NULL)",
                   there,
                   versionUnmoved,
                   {table + ", " + added.column + " TEXT)",
                    added.table,
                    "1, '', 'x'",
                    "2, '', NULL"}};
        QTest::addRow("version %d: the column is there in another letter case", added.version)
            << added.update
            << StepRun{
                   table + ", " + added.column.toUpper() + ")" + insert + "(1, '', 'x')",
                   there,
                   versionUnmoved,
                   {table + ", " + added.column.toUpper() + ")", added.table, "1, '', 'x'"}};
        QTest::addRow("version %d: there is no table", added.version)
            << added.update
            << StepRun{
                   "",
                   newColumnNotAdded(added.column, added.table, noSuchTable(added.table)) +
                       QStringList(added.failureLine),
                   versionUnmoved,
                   {}};
    }
}

void Versions13To20Test::updateThatAddsAColumn()
{
    QFETCH(Step, step);
    checkStep(*device, step);
}

void Versions13To20Test::revertThatDropsAColumn_data()
{
    QTest::addColumn<Step>("step");
    QTest::addColumn<StepRun>("run");

    for (const auto &added : addedColumns) {
        const QByteArray create =
            "CREATE TABLE " + added.table + " (id INTEGER PRIMARY KEY, a TEXT";
        const QByteArray insert = ";INSERT INTO " + added.table + " VALUES";
        const QByteArray rebuilt =
            "CREATE TABLE \"" + added.table + "\" (id INTEGER , a TEXT , PRIMARY KEY(id) )";
        const QByteArray copy = "CREATE TABLE " + added.table + "_temp (b)";
        QTest::addRow("version %d: the column goes, the rows stay", added.version)
            << added.revert
            << StepRun{
                   create + ", " + added.column + " " + added.type + ")" + insert +
                       "(1, 'Süd', 1), (7, NULL, 0)",
                   {},
                   added.version - 1,
                   {rebuilt, added.table, "1, 'Süd'", "7, NULL"}};
        QTest::addRow("version %d: the column goes in another letter case", added.version)
            << added.revert
            << StepRun{
                   create + ", " + added.column.toUpper() + ")" + insert + "(1, 'Süd', 1)",
                   {},
                   added.version - 1,
                   {rebuilt, added.table, "1, 'Süd'"}};
        QTest::addRow("version %d: without the column the table is rebuilt as well", added.version)
            << added.revert
            << StepRun{
                   create + ")" + insert + "(1, 'Süd')",
                   {},
                   added.version - 1,
                   {rebuilt, added.table, "1, 'Süd'"}};
        QTest::addRow("version %d: a copy was left behind", added.version)
            << added.revert
            << StepRun{
                   create + ", " + added.column + ");" + copy,
                   columnStays(added.column, added.table, copyInTheWay(added.table)),
                   versionUnmoved,
                   {create + ", " + added.column + ")", copy, added.table, added.table + "_temp"}};
        QTest::addRow("version %d: there is no table", added.version)
            << added.revert
            << StepRun{
                   "", columnStays(added.column, added.table, rebuildRefused), versionUnmoved, {}};
    }
}

void Versions13To20Test::revertThatDropsAColumn()
{
    QFETCH(Step, step);
    checkStep(*device, step);
}

void Versions13To20Test::updateToVersion16_data()
{
    const QStringList succeeded("Migration to version 16 was successful.");
    const QStringList failed("Migration to version 16 FAILED!");
    const QByteArray languagesView = viewInPlaceOf("languages");
    const QByteArray namesakes = "CREATE TABLE userProfiles (id INTEGER PRIMARY KEY, "
                                 "language TEXT, \"en-US\" TEXT, \"es\" TEXT)";

    QTest::addColumn<StepRun>("run");

    QTest::newRow("six languages get their country, their table goes") << StepRun{
        languages + ";INSERT INTO languages VALUES('en'), ('es');" + speakers + ";" +
            insertSpeakers(
                {"en",
                 "es",
                 "fr",
                 "de",
                 "ru",
                 "pt",
                 "en",
                 "it",
                 "EN",
                 " en",
                 "en-GB",
                 "fr-CA",
                 ""}) +
            "INSERT INTO userProfiles VALUES(20, NULL)",
        succeeded,
        16,
        QStringList(speakers) +
            speakersOf(
                {"en-US",
                 "es-ES",
                 "fr-FR",
                 "de-DE",
                 "ru-RU",
                 "pt-BR",
                 "en-US",
                 "it",
                 "EN",
                 " en",
                 "en-GB",
                 "fr-CA",
                 ""}) +
            QStringList("20, NULL")};
    QTest::newRow("the languages are changed in order, their table goes last") << StepRun{
        languages + ";INSERT INTO languages VALUES('en');" + speakers + ";" +
            insertSpeakers({"pt", "ru", "de", "fr", "es", "en"}) + changes + ";" + watchingChanges,
        succeeded,
        16,
        QStringList{speakers, changes, watchingChanges} +
            speakersOf({"pt-BR", "ru-RU", "de-DE", "fr-FR", "es-ES", "en-US"}) +
            QStringList{
                "changes",
                "'en', 'en-US'",
                "'es', 'es-ES'",
                "'fr', 'fr-FR'",
                "'de', 'de-DE'",
                "'ru', 'ru-RU'",
                "'pt', 'pt-BR'"}};
    for (const auto &[language, locale] : localesOfLanguages) {
        QStringList found;
        QStringList left;
        for (const auto &[otherLanguage, otherLocale] : localesOfLanguages) {
            found << otherLanguage;
            left << (otherLanguage == language ? language : otherLocale);
        }
        QTest::addRow("%s cannot become %s", qPrintable(language), qPrintable(locale)) << StepRun{
            languages + ";" + speakers + ";" + insertSpeakers(found) + refusalToChange(language),
            failed,
            versionUnmoved,
            QStringList{speakers, refusalToChange(language)} + speakersOf(left)};
    }
    QTest::newRow("the table of languages is gone: the profiles change all the same") << StepRun{
        speakers + ";" + insertSpeakers({"en", "pt"}),
        failed,
        versionUnmoved,
        QStringList(speakers) + speakersOf({"en-US", "pt-BR"})};
    QTest::newRow("a view stands in the place of the languages") << StepRun{
        speakers + ";" + insertSpeakers({"en", "pt"}) + languagesView,
        failed,
        versionUnmoved,
        QStringList{speakers, languagesView} + speakersOf({"en-US", "pt-BR"})};
    QTest::newRow("there are no profiles")
        << StepRun{languages + ";" + speakers, succeeded, 16, {speakers, "userProfiles"}};
    QTest::newRow("the profiles have no table: the languages go all the same")
        << StepRun{languages, failed, versionUnmoved, {}};
    QTest::newRow("a column that is called like a language gives its value") << StepRun{
        languages + ";" + namesakes +
            ";INSERT INTO userProfiles VALUES(1, 'en', 'en-AU', ''), (2, 'es', '', ''), "
            "(3, 'ca', '', 'ca')",
        succeeded,
        16,
        {namesakes,
         "userProfiles",
         "1, 'en-AU', 'en-AU', ''",
         "2, 'es', '', ''",
         "3, 'es-ES', '', 'ca'"}};
}

void Versions13To20Test::revertFromVersion16_data()
{
    QTest::addColumn<StepRun>("run");

    QTest::newRow("seven locales lose their country, the languages get no table") << StepRun{
        speakers + ";" +
            insertSpeakers(
                {"en-US",
                 "es-ES",
                 "fr-FR",
                 "fr-CA",
                 "de-DE",
                 "ru-RU",
                 "pt-BR",
                 "en-US",
                 "en-GB",
                 "EN-US",
                 "pt-PT",
                 "it",
                 "en"}) +
            "INSERT INTO userProfiles VALUES(20, NULL)",
        {},
        15,
        QStringList(speakers) +
            speakersOf(
                {"en",
                 "es",
                 "fr",
                 "fr",
                 "de",
                 "ru",
                 "pt",
                 "en",
                 "en-GB",
                 "EN-US",
                 "pt-PT",
                 "it",
                 "en"}) +
            QStringList("20, NULL")};
    QTest::newRow("the locales are changed in order, a table of languages stays") << StepRun{
        languages + ";INSERT INTO languages VALUES('en');" + speakers + ";" +
            insertSpeakers({"pt-BR", "ru-RU", "de-DE", "fr-CA", "fr-FR", "es-ES", "en-US"}) +
            changes + ";" + watchingChanges,
        {},
        15,
        QStringList{languages, speakers, changes, watchingChanges, "languages", "'en'"} +
            speakersOf({"pt", "ru", "de", "fr", "fr", "es", "en"}) +
            QStringList{
                "changes",
                "'en-US', 'en'",
                "'es-ES', 'es'",
                "'fr-FR', 'fr'",
                "'fr-CA', 'fr'",
                "'de-DE', 'de'",
                "'ru-RU', 'ru'",
                "'pt-BR', 'pt'"}};
    for (const auto &[locale, language] : languagesOfLocales) {
        QStringList found;
        QStringList left;
        for (const auto &[otherLocale, otherLanguage] : languagesOfLocales) {
            found << otherLocale;
            left << (otherLocale == locale ? locale : otherLanguage);
        }
        QTest::addRow("%s cannot become %s", qPrintable(locale), qPrintable(language)) << StepRun{
            speakers + ";" + insertSpeakers(found) + refusalToChange(locale),
            {},
            15,
            QStringList{speakers, refusalToChange(locale)} + speakersOf(left)};
    }
    QTest::newRow("the profiles have no table") << StepRun{"", {}, 15, {}};
}

void Versions13To20Test::canadianFrenchBecomesFrenchOfFrance()
{
    device->sql(speakers + ";" + insertSpeakers({"fr-CA"}));
    DatabaseMigrator &migrator = startAt(*device, 16);

    migrator.revertFromVersion16();
    QCOMPARE(migrator.currentVersion(), 15);
    device->sql(languages); // the device software makes it again
    migrator.updateToVersion16();

    COMPARE_LINES(takeLogLines(*device), QStringList("Migration to version 16 was successful."));
    QCOMPARE(migrator.currentVersion(), 16);
    COMPARE_LINES(device->dump(), QStringList(speakers) + speakersOf({"fr-FR"}));
}

void Versions13To20Test::updateToVersion17_data()
{
    const QByteArray insert = ";INSERT INTO internalGpsReceiverSettings VALUES";
    const QByteArray firmware = ", firmwareVersion VARCHAR[40])";
    const QString table = "supportedHarloReceiverSettings";

    const QStringList failed("Migration to version 17 FAILED!");
    const QStringList firmwareThere =
        newColumnNotAdded("firmwareVersion", table, columnThere("firmwareVersion"));

    QTest::addColumn<StepRun>("run");

    QTest::newRow("the receivers get another name and no firmware version") << StepRun{
        internalReceivers + ")" + insert + "(1, 38400), (2, NULL)",
        {"Migration to version 17 was successful."},
        17,
        {receiversRenamed + firmware, table, "1, 38400, NULL", "2, NULL, NULL"}};
    QTest::newRow("the receivers have the column: they are renamed all the same") << StepRun{
        internalReceivers + ", firmwareVersion)" + insert + "(1, 38400, '2.1')",
        firmwareThere + failed,
        versionUnmoved,
        {receiversRenamed + ", firmwareVersion)", table, "1, 38400, '2.1'"}};
    QTest::newRow("both tables are there: the column is added all the same") << StepRun{
        internalReceivers + ")" + insert + "(1, 38400);" + supportedReceivers +
            ");INSERT INTO supportedHarloReceiverSettings VALUES(5, 9600)",
        failed,
        versionUnmoved,
        {internalReceivers + ")",
         supportedReceivers + firmware,
         "internalGpsReceiverSettings",
         "1, 38400",
         table,
         "5, 9600, NULL"}};
    QTest::newRow("the change is there") << StepRun{
        supportedReceivers + firmware +
            ";INSERT INTO supportedHarloReceiverSettings VALUES(1, 38400, '2.1')",
        firmwareThere + failed,
        versionUnmoved,
        {supportedReceivers + firmware, table, "1, 38400, '2.1'"}};
    QTest::newRow("there is no table") << StepRun{
        "",
        newColumnNotAdded("firmwareVersion", table, noSuchTable(table)) + failed,
        versionUnmoved,
        {}};
}

void Versions13To20Test::revertFromVersion17_data()
{
    const QByteArray withFirmware =
        supportedReceivers +
        ", firmwareVersion VARCHAR[40]);"
        "INSERT INTO supportedHarloReceiverSettings VALUES(1, 38400, '2.1'), (2, NULL, NULL);";
    const QByteArray copy = "CREATE TABLE supportedHarloReceiverSettings_temp (a)";
    const QString table = "supportedHarloReceiverSettings";
    const QByteArray internalRebuilt =
        "CREATE TABLE \"internalGpsReceiverSettings\"" + receiversRebuilt;

    QTest::addColumn<StepRun>("run");

    QTest::newRow("the receivers lose their firmware version and get their old name") << StepRun{
        withFirmware,
        {},
        16,
        {internalRebuilt, "internalGpsReceiverSettings", "1, 38400", "2, NULL"}};
    QTest::newRow("there is no firmware version") << StepRun{
        supportedReceivers + ")", {}, 16, {internalRebuilt, "internalGpsReceiverSettings"}};
    QTest::newRow("the column stays: the receivers are renamed all the same") << StepRun{
        withFirmware + copy,
        columnStays("firmwareVersion", table, copyInTheWay(table)),
        16,
        {"CREATE TABLE \"internalGpsReceiverSettings\" (id INTEGER PRIMARY KEY, baudRate INTEGER, "
         "firmwareVersion VARCHAR[40])",
         copy,
         "internalGpsReceiverSettings",
         "1, 38400, '2.1'",
         "2, NULL, NULL",
         "supportedHarloReceiverSettings_temp"}};
    QTest::newRow("the old name is taken: the column goes all the same") << StepRun{
        internalReceivers + ");" + withFirmware,
        {},
        16,
        {internalReceivers + ")",
         "CREATE TABLE \"supportedHarloReceiverSettings\"" + receiversRebuilt,
         "internalGpsReceiverSettings",
         table,
         "1, 38400",
         "2, NULL"}};
    QTest::newRow("there is no table")
        << StepRun{"", columnStays("firmwareVersion", table, rebuildRefused), 16, {}};
}

void Versions13To20Test::updateToVersion19_data()
{
    const QByteArray indexInTheWay =
        "CREATE INDEX onScreenSwitchboxToMachineMapping ON MC_MachineConfig (id)";
    const QByteArray mappingView = viewInPlaceOf("onScreenSwitchboxToMachineMapping");
    const QByteArray switchesView =
        "CREATE VIEW onScreenSwitchboxConfig AS SELECT id AS machineConfigId FROM MC_MachineConfig";
    const QByteArray brokenSwitchesView =
        "CREATE VIEW onScreenSwitchboxConfig AS SELECT machineConfigId FROM nowhere";
    const QByteArray labelsView = viewInPlaceOf("onScreenSwitchboxSwitchLabels");
    const QByteArray insertMachines = ";INSERT INTO MC_MachineConfig VALUES";
    const QByteArray insertSwitches = ";INSERT INTO onScreenSwitchboxConfig VALUES";
    const QByteArray mapped = "CREATE TABLE mapped (machineConfigId INTEGER)";
    const QByteArray watchingMapping =
        "CREATE TRIGGER watching AFTER INSERT ON onScreenSwitchboxToMachineMapping BEGIN "
        "INSERT INTO mapped VALUES(NEW.machineConfigId); END";
    const QByteArray refusal =
        "CREATE TRIGGER refusal BEFORE INSERT ON onScreenSwitchboxToMachineMapping "
        "WHEN NEW.machineConfigId = 3 BEGIN SELECT RAISE(ABORT, 'refused'); END";

    const QStringList succeeded("Migration to version 19 was successful.");
    const QStringList failed("Migration to version 19 FAILED!");
    const QStringList switchesStay =
        tableStays("onScreenSwitchboxConfig", viewStays("onScreenSwitchboxConfig"));
    const QStringList labelsStay =
        tableStays("onScreenSwitchboxSwitchLabels", viewStays("onScreenSwitchboxSwitchLabels"));
    const QString mappingTable = "onScreenSwitchboxToMachineMapping";

    QTest::addColumn<StepRun>("run");

    QTest::newRow("every machine with switches is mapped once, switches and labels go") << StepRun{
        machines + insertMachines + "(1), (2), (5);" + switches + insertSwitches +
            "(5, 10, 0), (5, 11, 3), (5, 12, 3), (2, 20, 7);" + labels +
            ";INSERT INTO onScreenSwitchboxSwitchLabels VALUES(5, 0, 'S1'), (1, 0, 'S1')",
        succeeded,
        19,
        {machines,
         mapping,
         "MC_MachineConfig",
         "1",
         "2",
         "5",
         mappingTable,
         "2, 'Invalid Configuration'",
         "5, 'Invalid Configuration'"}};
    QTest::newRow("there are no switches") << StepRun{
        machines + ";" + switches + ";" + labels,
        succeeded,
        19,
        {machines, mapping, "MC_MachineConfig", mappingTable}};
    QTest::newRow("the switches have no table: labels go, nothing is mapped") << StepRun{
        machines + insertMachines + "(1);" + labels +
            ";INSERT INTO onScreenSwitchboxSwitchLabels VALUES(1, 0, 'S1')",
        succeeded,
        19,
        {machines, mapping, "MC_MachineConfig", "1", mappingTable}};
    QTest::newRow("the switches name no machine: they go, nothing is mapped") << StepRun{
        "CREATE TABLE onScreenSwitchboxConfig (a);"
        "INSERT INTO onScreenSwitchboxConfig VALUES(1);",
        succeeded,
        19,
        {mapping, mappingTable}};
    QTest::newRow("there is no table") << StepRun{"", succeeded, 19, {mapping, mappingTable}};
    QTest::newRow("mapped machines that have switches are mapped anew, others stay") << StepRun{
        machines + insertMachines + "(1), (2);" + switches + insertSwitches + "(1, 10, 0);" +
            mapping +
            ";INSERT INTO onScreenSwitchboxToMachineMapping VALUES(1, 'S1-S4'), (2, 'S5')",
        succeeded,
        19,
        {machines,
         mapping,
         "MC_MachineConfig",
         "1",
         "2",
         mappingTable,
         "1, 'Invalid Configuration'",
         "2, 'S5'"}};
    QTest::newRow("a machine with three sections is mapped no more than once") << StepRun{
        machines + insertMachines + "(5);" + switches + insertSwitches +
            "(5, 10, 0), (5, 11, 3), (5, 12, 3);" + mapping + ";" + mapped + ";" + watchingMapping,
        succeeded,
        19,
        {machines,
         mapping,
         mapped,
         watchingMapping,
         "MC_MachineConfig",
         "5",
         mappingTable,
         "5, 'Invalid Configuration'",
         "mapped",
         "5"}};
    QTest::newRow("machines are integers of 64 bits, what is none becomes 0") << StepRun{
        machines + insertMachines + "(-1), (0), (9007199254740993);" + switches + insertSwitches +
            "(9007199254740993, 1, 0), ('ten', 1, 0), (NULL, 1, 0), (-1, 1, 0)",
        succeeded,
        19,
        {machines,
         mapping,
         "MC_MachineConfig",
         "-1",
         "0",
         "9007199254740993",
         mappingTable,
         "-1, 'Invalid Configuration'",
         "0, 'Invalid Configuration'",
         "9007199254740993, 'Invalid Configuration'"}};

    QTest::newRow("the mapping cannot be made: the rest stays") << StepRun{
        machines + insertMachines + "(1);" + indexInTheWay + ";" + switches + insertSwitches +
            "(1, 10, 0);" + labels,
        failed,
        versionUnmoved,
        {machines,
         indexInTheWay,
         switches,
         labels,
         "MC_MachineConfig",
         "1",
         "onScreenSwitchboxConfig",
         "1, 10, 0",
         "onScreenSwitchboxSwitchLabels"}};
    QTest::newRow("one machine cannot be mapped: the next one is, switches and labels stay")
        << StepRun{
               machines + insertMachines + "(1), (3), (5);" + switches + insertSwitches +
                   "(1, 10, 0), (3, 10, 0), (5, 10, 0);" + labels + ";" + mapping + ";" + refusal,
               failed,
               versionUnmoved,
               {machines,
                switches,
                labels,
                mapping,
                refusal,
                "MC_MachineConfig",
                "1",
                "3",
                "5",
                "onScreenSwitchboxConfig",
                "1, 10, 0",
                "3, 10, 0",
                "5, 10, 0",
                "onScreenSwitchboxSwitchLabels",
                mappingTable,
                "1, 'Invalid Configuration'",
                "5, 'Invalid Configuration'"}};
    const QByteArray unreadableSwitches =
        "CREATE TABLE onScreenSwitchboxConfig (" +
        unreadableColumn("machineConfigId INTEGER", "stored = 3") + ")";
    QTest::newRow("the machines break off: switches and labels stay") << StepRun{
        machines + insertMachines + "(1), (3), (5);" +
            "CREATE TABLE onScreenSwitchboxConfig (machineConfigId INTEGER)" + insertSwitches +
            "(1), (3), (5);" + labels +
            makeUnreadable("onScreenSwitchboxConfig", "machineConfigId INTEGER", "stored = 3"),
        failed,
        versionUnmoved,
        {machines,
         unreadableSwitches,
         labels,
         mapping,
         "MC_MachineConfig",
         "1",
         "3",
         "5",
         "onScreenSwitchboxConfig",
         "1, 1",
         "onScreenSwitchboxSwitchLabels",
         mappingTable,
         "1, 'Invalid Configuration'"}};
    QTest::newRow("one machine is not there: the others are mapped") << StepRun{
        machines + insertMachines + "(1), (5);" + switches + insertSwitches +
            "(1, 10, 0), (3, 10, 0), (5, 10, 0)",
        failed,
        versionUnmoved,
        {machines,
         switches,
         mapping,
         "MC_MachineConfig",
         "1",
         "5",
         "onScreenSwitchboxConfig",
         "1, 10, 0",
         "3, 10, 0",
         "5, 10, 0",
         mappingTable,
         "1, 'Invalid Configuration'",
         "5, 'Invalid Configuration'"}};
    QTest::newRow("a view stands in the place of the mapping, without switches")
        << StepRun{mappingView + ";" + switches, succeeded, 19, {mappingView}};
    QTest::newRow("a view stands in the place of the mapping, with a switch") << StepRun{
        mappingView + ";" + machines + insertMachines + "(1);" + switches + insertSwitches +
            "(1, 10, 0)",
        failed,
        versionUnmoved,
        {mappingView,
         machines,
         switches,
         "MC_MachineConfig",
         "1",
         "onScreenSwitchboxConfig",
         "1, 10, 0"}};
    QTest::newRow("the switches cannot go: the labels do") << StepRun{
        machines + insertMachines + "(1), (2);" + switchesView + ";" + labels,
        switchesStay + succeeded,
        19,
        {machines,
         switchesView,
         mapping,
         "MC_MachineConfig",
         "1",
         "2",
         mappingTable,
         "1, 'Invalid Configuration'",
         "2, 'Invalid Configuration'"}};
    QTest::newRow("neither can be read or go, in this order") << StepRun{
        brokenSwitchesView + ";" + labelsView,
        switchesStay + labelsStay + succeeded,
        19,
        {brokenSwitchesView, labelsView, mapping, mappingTable}};
}

void Versions13To20Test::revertFromVersion19_data()
{
    const QByteArray switchesView = viewInPlaceOf("onScreenSwitchboxConfig");
    const QByteArray labelsView = viewInPlaceOf("onScreenSwitchboxSwitchLabels");
    const QByteArray mappingView = viewInPlaceOf("onScreenSwitchboxToMachineMapping");
    const QStringList switchesStay =
        tableStays("onScreenSwitchboxConfig", viewStays("onScreenSwitchboxConfig"));
    const QStringList labelsStay =
        tableStays("onScreenSwitchboxSwitchLabels", viewStays("onScreenSwitchboxSwitchLabels"));
    const QStringList mappingStays = tableStays(
        "onScreenSwitchboxToMachineMapping", viewStays("onScreenSwitchboxToMachineMapping"));

    QTest::addColumn<StepRun>("run");

    QTest::newRow("the mapping goes, the older tables do not come back") << StepRun{
        machines + ";" + mapping +
            ";INSERT INTO MC_MachineConfig VALUES(5);"
            "INSERT INTO onScreenSwitchboxToMachineMapping VALUES(5, 'Invalid Configuration')",
        {},
        18,
        {machines, "MC_MachineConfig", "5"}};
    QTest::newRow("switches and labels go with the mapping") << StepRun{
        machines + ";" + switches + ";" + labels + ";" + mapping +
            ";INSERT INTO MC_MachineConfig VALUES(5);"
            "INSERT INTO onScreenSwitchboxConfig VALUES(5, 10, 0);"
            "INSERT INTO onScreenSwitchboxSwitchLabels VALUES(5, 0, 'S1');"
            "INSERT INTO onScreenSwitchboxToMachineMapping VALUES(5, 'S1');",
        {},
        18,
        {machines, "MC_MachineConfig", "5"}};
    QTest::newRow("there is no table") << StepRun{"", {}, 18, {}};
    QTest::newRow("the switches cannot go")
        << StepRun{switchesView + ";" + labels + ";" + mapping, switchesStay, 18, {switchesView}};
    QTest::newRow("the labels cannot go")
        << StepRun{switches + ";" + labelsView + ";" + mapping, labelsStay, 18, {labelsView}};
    QTest::newRow("the mapping cannot go")
        << StepRun{switches + ";" + labels + ";" + mappingView, mappingStays, 18, {mappingView}};
    QTest::newRow("none can go, in this order") << StepRun{
        switchesView + ";" + labelsView + ";" + mappingView,
        switchesStay + labelsStay + mappingStays,
        18,
        {switchesView, labelsView, mappingView}};
}

void Versions13To20Test::updateToVersion20_data()
{
    const QByteArray insert = ";INSERT INTO userProfiles VALUES";
    const QByteArray noWarning =
        "CREATE TRIGGER refusal BEFORE UPDATE OF audibleBackingUpWarningEnabled ON userProfiles "
        "BEGIN SELECT RAISE(ABORT, 'refused'); END";
    const QByteArray noVolume =
        "CREATE TRIGGER refusal BEFORE UPDATE OF audioVolumePercent ON userProfiles "
        "BEGIN SELECT RAISE(ABORT, 'refused'); END";
    const QByteArray otherWarning =
        profiles + ", AudibleBackingUpWarningEnabled BOOLEAN, audioVolumePercent REAL)";
    const QByteArray otherVolume =
        profiles + ", audibleBackingUpWarningEnabled BOOLEAN, AudioVolumePercent REAL)";

    const QStringList succeeded("Migration to version 20 was successful.");
    const QStringList failed("Migration to version 20 FAILED!");

    QTest::addColumn<StepRun>("run");

    QTest::newRow("every profile gets the warning and three quarters of the volume") << StepRun{
        profiles + ")" + insert + "(1, 'Müller'), (7, NULL)",
        succeeded,
        20,
        {profiles + sounds, "userProfiles", "1, 'Müller', 1, 0.75", "7, NULL, 1, 0.75"}};
    QTest::newRow("also when both columns are there") << StepRun{
        profiles + sounds + insert + "(1, 'Müller', 0, 1.0), (7, NULL, NULL, NULL)",
        succeeded,
        20,
        {profiles + sounds, "userProfiles", "1, 'Müller', 1, 0.75", "7, NULL, 1, 0.75"}};
    QTest::newRow("also when only the volume is there") << StepRun{
        profiles + ", audioVolumePercent TEXT)" + insert + "(1, 'Müller', 'loud')",
        succeeded,
        20,
        {profiles + ", audioVolumePercent TEXT, audibleBackingUpWarningEnabled BOOLEAN)",
         "userProfiles",
         "1, 'Müller', '0.75', 1"}};
    QTest::newRow("there are no profiles")
        << StepRun{profiles + ")", succeeded, 20, {profiles + sounds, "userProfiles"}};
    QTest::newRow("the warning is there in another letter case: the rest is done") << StepRun{
        profiles + ", AudibleBackingUpWarningEnabled BOOLEAN)" + insert + "(1, 'Müller', 0)",
        notAdded(
            "audibleBackingUpWarningEnabled",
            "userProfiles",
            columnThere("audibleBackingUpWarningEnabled")) +
            failed,
        versionUnmoved,
        {otherWarning, "userProfiles", "1, 'Müller', 1, 0.75"}};
    QTest::newRow("the volume is there in another letter case: the rest is done") << StepRun{
        otherVolume + insert + "(1, 'Müller', 0, 1.0)",
        notAdded("audioVolumePercent", "userProfiles", columnThere("audioVolumePercent")) + failed,
        versionUnmoved,
        {otherVolume, "userProfiles", "1, 'Müller', 1, 0.75"}};
    QTest::newRow("the warning cannot be switched on: the volume is set") << StepRun{
        profiles + sounds + insert + "(1, 'Müller', 0, 1.0);" + noWarning,
        notSet("audibleBackingUpWarningEnabled", "1", rowRefused) + failed,
        versionUnmoved,
        {profiles + sounds, noWarning, "userProfiles", "1, 'Müller', 0, 0.75"}};
    QTest::newRow("the volume cannot be set: the warning is switched on") << StepRun{
        profiles + sounds + insert + "(1, 'Müller', 0, 1.0);" + noVolume,
        notSet("audioVolumePercent", "0.75", rowRefused) + failed,
        versionUnmoved,
        {profiles + sounds, noVolume, "userProfiles", "1, 'Müller', 1, 1.0"}};
    QTest::newRow("there is no table: all four are tried, in this order") << StepRun{
        "",
        notAdded("audibleBackingUpWarningEnabled", "userProfiles", noSuchTable("userProfiles")) +
            notAdded("audioVolumePercent", "userProfiles", noSuchTable("userProfiles")) +
            notSet("audibleBackingUpWarningEnabled", "1", noSuchTable("userProfiles")) +
            notSet("audioVolumePercent", "0.75", noSuchTable("userProfiles")) + failed,
        versionUnmoved,
        {}};
}

void Versions13To20Test::revertFromVersion20_data()
{
    const QByteArray warningInKey =
        "CREATE TABLE userProfiles (id INTEGER, audibleBackingUpWarningEnabled BOOLEAN, "
        "audioVolumePercent REAL, PRIMARY KEY (audibleBackingUpWarningEnabled, id))";
    const QByteArray volumeInKey =
        "CREATE TABLE userProfiles (id INTEGER, audibleBackingUpWarningEnabled BOOLEAN, "
        "audioVolumePercent REAL, PRIMARY KEY (audioVolumePercent, id))";

    QTest::addColumn<StepRun>("run");

    QTest::newRow("warning and volume go, the profiles stay") << StepRun{
        profiles + sounds +
            ";INSERT INTO userProfiles VALUES(1, 'Müller', 1, 0.75), (7, NULL, 0, NULL)",
        {},
        19,
        {profilesRebuilt, "userProfiles", "1, 'Müller'", "7, NULL"}};
    QTest::newRow("neither is there") << StepRun{
        profiles + ");INSERT INTO userProfiles VALUES(1, 'Müller')",
        {},
        19,
        {profilesRebuilt, "userProfiles", "1, 'Müller'"}};
    QTest::newRow("the warning cannot go: the volume is left alone") << StepRun{
        warningInKey + ";INSERT INTO userProfiles VALUES(1, 1, 0.75)",
        columnStays("audibleBackingUpWarningEnabled", "userProfiles", keyRefused),
        versionUnmoved,
        {warningInKey, "userProfiles", "1, 1, 0.75"}};
    QTest::newRow("the volume cannot go: the warning has gone") << StepRun{
        volumeInKey + ";INSERT INTO userProfiles VALUES(1, 1, 0.75)",
        columnStays("audioVolumePercent", "userProfiles", keyRefused),
        versionUnmoved,
        {"CREATE TABLE \"userProfiles\" (id INTEGER , audioVolumePercent REAL , "
         "PRIMARY KEY(audioVolumePercent,id) )",
         "userProfiles",
         "1, 0.75"}};
    QTest::newRow("there is no table: only the warning is tried") << StepRun{
        "",
        columnStays("audibleBackingUpWarningEnabled", "userProfiles", rebuildRefused),
        versionUnmoved,
        {}};
}

void Versions13To20Test::secondUpdate_data()
{
    QTest::addColumn<Step>("step");
    QTest::addColumn<int>("version");
    QTest::addColumn<QStringList>("log");

    QTest::newRow("version 13: the licence is there")
        << Step(&M::updateToVersion13) << 13
        << newColumnNotAdded("acceptedEULA", "userProfiles", columnThere("acceptedEULA")) +
               QStringList("Migration to version 13 FAILED!");
    for (const auto &added : addedColumns) {
        QTest::addRow("version %d: the column is there", added.version)
            << added.update << added.version
            << newColumnNotAdded(added.column, added.table, columnThere(added.column)) +
                   QStringList(added.failureLine);
    }
    QTest::newRow("version 16: the languages have gone")
        << Step(&M::updateToVersion16) << 16 << QStringList("Migration to version 16 FAILED!");
    QTest::newRow("version 17: the column is there")
        << Step(&M::updateToVersion17) << 17
        << newColumnNotAdded(
               "firmwareVersion",
               "supportedHarloReceiverSettings",
               columnThere("firmwareVersion")) +
               QStringList("Migration to version 17 FAILED!");
    QTest::newRow("version 19: the mapping stays")
        << Step(&M::updateToVersion19) << 19
        << QStringList("Migration to version 19 was successful.");
    QTest::newRow("version 20: the columns are there")
        << Step(&M::updateToVersion20) << 20
        << QStringList("Migration to version 20 was successful.");
}

void Versions13To20Test::secondUpdate()
{
    device->sql(tablesAt12);
    runTwice(startAt(*device, 12));
}

void Versions13To20Test::secondRevert_data()
{
    QTest::addColumn<Step>("step");
    QTest::addColumn<int>("version");
    QTest::addColumn<QStringList>("log");

    QTest::newRow("version 13: the table is rebuilt as it is")
        << Step(&M::revertFromVersion13) << 12 << QStringList();
    for (const auto &added : addedColumns) {
        QTest::addRow("version %d: the table is rebuilt as it is", added.version)
            << added.revert << added.version - 1 << QStringList();
    }
    QTest::newRow("version 16: no locale is left")
        << Step(&M::revertFromVersion16) << 15 << QStringList();
    QTest::newRow("version 17: the table has its old name")
        << Step(&M::revertFromVersion17) << 16
        << columnStays("firmwareVersion", "supportedHarloReceiverSettings", rebuildRefused);
    QTest::newRow("version 19: no table is left")
        << Step(&M::revertFromVersion19) << 18 << QStringList();
    QTest::newRow("version 20: the table is rebuilt as it is")
        << Step(&M::revertFromVersion20) << 19 << QStringList();
}

void Versions13To20Test::secondRevert()
{
    runTwice(startAt20());
}

void Versions13To20Test::backFrom20To12AndForwardAgain()
{
    DatabaseMigrator &migrator = startAt20();
    QCOMPARE(migrator.currentVersion(), 20);
    device->takeLog();

    migrator.revertFromVersion20();
    migrator.revertFromVersion19();
    migrator.revertFromVersion18();
    migrator.revertFromVersion17();
    migrator.revertFromVersion16();
    migrator.revertFromVersion15();
    migrator.revertFromVersion14();
    migrator.revertFromVersion13();

    COMPARE_LINES(takeLogLines(*device), QStringList());
    QCOMPARE(migrator.currentVersion(), 12);
    COMPARE_LINES(
        device->dump(),
        QStringList(
            {machines,
             "CREATE TABLE \"JP_JobProfile\" (id INTEGER , PRIMARY KEY(id) )",
             "CREATE TABLE \"internalGpsReceiverSettings\"" + receiversRebuilt,
             "CREATE TABLE \"MC_EquipmentSectionGroup\" (id INTEGER , PRIMARY KEY(id) )",
             "CREATE TABLE \"preferredGpsSolutions\" (id INTEGER , PRIMARY KEY(id) )",
             "CREATE TABLE \"userProfiles\" (id INTEGER , userName TEXT , language TEXT , "
             "PRIMARY KEY(id) )",
             "MC_MachineConfig",
             "1",
             "JP_JobProfile",
             "1",
             "internalGpsReceiverSettings",
             "1, 38400",
             "MC_EquipmentSectionGroup",
             "1",
             "preferredGpsSolutions",
             "1",
             "userProfiles",
             "1, 'Петров', 'ru'"}));

    migrator.updateToVersion13();
    migrator.updateToVersion14();
    migrator.updateToVersion15();
    migrator.updateToVersion16();
    QCOMPARE(migrator.currentVersion(), 15);
    migrator.updateToVersion17();
    migrator.updateToVersion18();
    migrator.updateToVersion19();
    migrator.updateToVersion20();

    COMPARE_LINES(
        takeLogLines(*device),
        QStringList(
            {"Migration to version 13 was successful.",
             "Migration to version 14 was successful.",
             "Migration to version 15 was successful.",
             "Migration to version 16 FAILED!",
             "Migration to version 17 was successful.",
             "Migration to version 18 was successful.",
             "Migration to version 19 was successful.",
             "Migration to version 20 was successful."}));
    QCOMPARE(migrator.currentVersion(), 20);
    COMPARE_LINES(
        device->dump(),
        QStringList(
            {machines,
             "CREATE TABLE \"JP_JobProfile\" (id INTEGER , guidanceType INTEGER DEFAULT 2, "
             "PRIMARY KEY(id) )",
             "CREATE TABLE \"supportedHarloReceiverSettings\" (id INTEGER , baudRate INTEGER , "
             "firmwareVersion VARCHAR[40], PRIMARY KEY(id) )",
             "CREATE TABLE \"MC_EquipmentSectionGroup\" (id INTEGER , "
             "useEcuOffsets BOOLEAN DEFAULT 1, PRIMARY KEY(id) )",
             "CREATE TABLE \"preferredGpsSolutions\" (id INTEGER , "
             "filterLevel INTEGER DEFAULT 1, PRIMARY KEY(id) )",
             "CREATE TABLE \"userProfiles\" (id INTEGER , userName TEXT , language TEXT , "
             "acceptedEULA BOOLEAN DEFAULT 0, audibleBackingUpWarningEnabled BOOLEAN, "
             "audioVolumePercent REAL, PRIMARY KEY(id) )",
             mapping,
             "MC_MachineConfig",
             "1",
             "JP_JobProfile",
             "1, 2",
             "supportedHarloReceiverSettings",
             "1, 38400, NULL",
             "MC_EquipmentSectionGroup",
             "1, 1",
             "preferredGpsSolutions",
             "1, 1",
             "userProfiles",
             "1, 'Петров', 'ru-RU', 0, 1, 0.75",
             "onScreenSwitchboxToMachineMapping"}));
}

void Versions13To20Test::probes_data()
{
    const struct {
        int version;
        Probe probe;
        QByteArray table;
        QByteArray column;
        QByteArray otherColumns; ///< what else the probe looks for
        bool appliedWithoutTable;
    } columnProbes[] = {
        {13, &M::getUpdate13Applied, "userProfiles", "acceptedEULA", "", false},
        {14, &M::getUpdate14Applied, "preferredGpsSolutions", "filterLevel", "", true},
        {15, &M::getUpdate15Applied, "MC_EquipmentSectionGroup", "useEcuOffsets", "", false},
        {18, &M::getUpdate18Applied, "JP_JobProfile", "guidanceType", "", false},
        {20,
         &M::getUpdate20Applied,
         "userProfiles",
         "audibleBackingUpWarningEnabled",
         ", audioVolumePercent",
         false},
        {20,
         &M::getUpdate20Applied,
         "userProfiles",
         "audioVolumePercent",
         ", audibleBackingUpWarningEnabled",
         false},
    };

    QTest::addColumn<Probe>("probe");
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<bool>("applied");

    for (const auto &[version, probe, table, column, otherColumns, appliedWithoutTable] :
         columnProbes) {
        const QByteArray create = "CREATE TABLE " + table + " (id";
        const auto addRow = [version = version,
                             column = column](const char *answer) -> QTestData & {
            return QTest::addRow("version %d: %s %s", version, column.constData(), answer);
        };
        addRow("is the last") << probe << create + otherColumns + ", " + column + ")" << true;
        addRow("is the first") << probe
                               << "CREATE TABLE " + table + " (" + column + otherColumns + ")"
                               << true;
        addRow("is missing") << probe << create + otherColumns + ")" << false;
        addRow("has another letter case")
            << probe << create + otherColumns + ", " + column.toUpper() + ")" << false;
        addRow("is part of another name")
            << probe << create + otherColumns + ", " + column + "2)" << false;
        addRow("is there, the table has another letter case")
            << probe << "CREATE TABLE " + table.toUpper() + " (" + column + otherColumns + ")"
            << true;
        addRow("is missing, the table has another letter case")
            << probe << "CREATE TABLE " + table.toUpper() + " (id" + otherColumns + ")"
            << appliedWithoutTable;
        addRow("has no table") << probe << QByteArray() << appliedWithoutTable;
    }
    QTest::newRow("version 20: both columns are missing")
        << Probe(&M::getUpdate20Applied) << QByteArray("CREATE TABLE userProfiles (id)") << false;

    const Probe probe16 = &M::getUpdate16Applied;
    QTest::newRow("version 16: there are languages") << probe16 << languages << false;
    QTest::newRow("version 16: there are no languages") << probe16 << QByteArray() << true;
    QTest::newRow("version 16: the profiles are not looked at")
        << probe16 << speakers + ";" + insertSpeakers({"en"}) << true;
    QTest::newRow("version 16: the languages have another letter case")
        << probe16 << QByteArray("CREATE TABLE Languages (code)") << true;
    QTest::newRow("version 16: the languages are a view")
        << probe16 << viewInPlaceOf("languages") << true;

    const Probe probe17 = &M::getUpdate17Applied;
    QTest::newRow("version 17: only the new table is there")
        << probe17 << supportedReceivers + ")" << true;
    QTest::newRow("version 17: only the old table is there")
        << probe17 << internalReceivers + ")" << false;
    QTest::newRow("version 17: both tables are there")
        << probe17 << supportedReceivers + ");" + internalReceivers + ")" << false;
    QTest::newRow("version 17: there is no table") << probe17 << QByteArray() << true;
    QTest::newRow("version 17: the old table has another letter case")
        << probe17 << QByteArray("CREATE TABLE InternalGpsReceiverSettings (id)") << true;
    QTest::newRow("version 17: the old table is a view")
        << probe17 << viewInPlaceOf("internalGpsReceiverSettings") << true;

    const Probe probe19 = &M::getUpdate19Applied;
    const QByteArray labelsWithState =
        "CREATE TABLE onScreenSwitchboxSwitchLabels (id, switchState)";
    QTest::newRow("version 19: there is no table") << probe19 << QByteArray() << false;
    QTest::newRow("version 19: the mapping alone") << probe19 << mapping << true;
    QTest::newRow("version 19: the mapping has another letter case")
        << probe19 << QByteArray("CREATE TABLE OnScreenSwitchboxToMachineMapping (id)") << false;
    QTest::newRow("version 19: the mapping is a view")
        << probe19 << viewInPlaceOf("onScreenSwitchboxToMachineMapping") << false;
    QTest::newRow("version 19: the labels alone") << probe19 << labels << false;
    QTest::newRow("version 19: labels with a state alone") << probe19 << labelsWithState << false;
    QTest::newRow("version 19: mapping and labels") << probe19 << mapping + ";" + labels << false;
    QTest::newRow("version 19: mapping and labels with a state")
        << probe19 << mapping + ";" + labelsWithState << true;
    QTest::newRow("version 19: mapping and labels with a state in another letter case")
        << probe19 << mapping + ";CREATE TABLE onScreenSwitchboxSwitchLabels (id, SwitchState)"
        << false;
    QTest::newRow("version 19: the mapping, and labels in another letter case")
        << probe19 << mapping + ";CREATE TABLE OnScreenSwitchboxSwitchLabels (id)" << true;
    QTest::newRow("version 19: the mapping, and labels that are a view")
        << probe19 << mapping + ";" + viewInPlaceOf("onScreenSwitchboxSwitchLabels") << true;
    QTest::newRow("version 19: the switches are not looked at")
        << probe19 << mapping + ";" + switches << true;
}

void Versions13To20Test::probes()
{
    QFETCH(Probe, probe);
    checkProbe(*device, probe);
}

void Versions13To20Test::stepsOnAClosedConnection_data()
{
    QTest::addColumn<Step>("step");
    QTest::addColumn<int>("version");
    QTest::addColumn<QStringList>("log");

    QTest::newRow("forward, version 13")
        << Step(&M::updateToVersion13) << versionUnmoved
        << tableStays("SoftwareUpdateTable", "") +
               newColumnNotAdded("acceptedEULA", "userProfiles", "") +
               QStringList("Migration to version 13 FAILED!");
    QTest::newRow("backward, version 13")
        << Step(&M::revertFromVersion13) << versionUnmoved
        << tableStays("SoftwareVersion", "") + tableStays("SoftwareUpdates", "") +
               columnStays("acceptedEULA", "userProfiles", "");
    for (const auto &added : addedColumns) {
        QTest::addRow("forward, version %d", added.version)
            << added.update << versionUnmoved
            << newColumnNotAdded(added.column, added.table, "") + QStringList(added.failureLine);
        QTest::addRow("backward, version %d", added.version)
            << added.revert << versionUnmoved << columnStays(added.column, added.table, "");
    }
    QTest::newRow("forward, version 16") << Step(&M::updateToVersion16) << versionUnmoved
                                         << QStringList("Migration to version 16 FAILED!");
    QTest::newRow("backward, version 16") << Step(&M::revertFromVersion16) << 15 << QStringList();
    QTest::newRow("forward, version 17")
        << Step(&M::updateToVersion17) << versionUnmoved
        << newColumnNotAdded("firmwareVersion", "supportedHarloReceiverSettings", "") +
               QStringList("Migration to version 17 FAILED!");
    QTest::newRow("backward, version 17")
        << Step(&M::revertFromVersion17) << 16
        << columnStays("firmwareVersion", "supportedHarloReceiverSettings", "");
    QTest::newRow("forward, version 19") << Step(&M::updateToVersion19) << versionUnmoved
                                         << QStringList("Migration to version 19 FAILED!");
    QTest::newRow("backward, version 19")
        << Step(&M::revertFromVersion19) << 18
        << tableStays("onScreenSwitchboxConfig", "") +
               tableStays("onScreenSwitchboxSwitchLabels", "") +
               tableStays("onScreenSwitchboxToMachineMapping", "");
    QTest::newRow("forward, version 20")
        << Step(&M::updateToVersion20) << versionUnmoved
        << notAdded("audibleBackingUpWarningEnabled", "userProfiles", "") +
               notAdded("audioVolumePercent", "userProfiles", "") +
               notSet("audibleBackingUpWarningEnabled", "1", "") +
               notSet("audioVolumePercent", "0.75", "") +
               QStringList("Migration to version 20 FAILED!");
    QTest::newRow("backward, version 20")
        << Step(&M::revertFromVersion20) << versionUnmoved
        << columnStays("audibleBackingUpWarningEnabled", "userProfiles", "");
}

void Versions13To20Test::probesOnAClosedConnection()
{
    const DatabaseMigrator &migrator = startAt(*device, versionUnmoved);
    QSqlDatabase::database().close();

    QCOMPARE(migrator.getUpdate13Applied(), false);
    QCOMPARE(migrator.getUpdate14Applied(), true);
    QCOMPARE(migrator.getUpdate15Applied(), false);
    QCOMPARE(migrator.getUpdate16Applied(), true);
    QCOMPARE(migrator.getUpdate17Applied(), true);
    QCOMPARE(migrator.getUpdate18Applied(), false);
    QCOMPARE(migrator.getUpdate19Applied(), false);
    QCOMPARE(migrator.getUpdate20Applied(), false);
    COMPARE_LINES(takeLogLines(*device), QStringList());
}

QTEST_APPLESS_MAIN(Versions13To20Test)
#include "versions_13_to_20_test.moc"
