#include "support/step_test.h"

namespace
{
// The profiles of version 16, and how their languages change.
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

// The receivers of version 17 under both names: as created, renamed and rebuilt.
const QByteArray internalReceivers =
    "CREATE TABLE internalGpsReceiverSettings (id INTEGER PRIMARY KEY, baudRate INTEGER";
const QByteArray supportedReceivers =
    "CREATE TABLE supportedHarloReceiverSettings (id INTEGER PRIMARY KEY, baudRate INTEGER";
const QByteArray receiversRenamed =
    "CREATE TABLE \"supportedHarloReceiverSettings\" (id INTEGER PRIMARY KEY, baudRate INTEGER";
const QByteArray receiversRebuilt = " (id INTEGER , baudRate INTEGER , PRIMARY KEY(id) )";

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

/// A trigger that records every change of a language while the table of languages has a row.
const QByteArray changes = "CREATE TABLE changes (found TEXT, left TEXT)";
const QByteArray watchingChanges =
    "CREATE TRIGGER watching AFTER UPDATE ON userProfiles BEGIN "
    "INSERT INTO changes SELECT OLD.language, NEW.language FROM languages; END";
} // namespace

class Versions16To17Test : public StepTest
{
    Q_OBJECT

private slots:
    void updateToVersion16_data();
    void updateToVersion16() { checkStep(&M::updateToVersion16); }
    void revertFromVersion16_data();
    void revertFromVersion16() { checkStep(&M::revertFromVersion16); }
    void canadianFrenchBecomesFrenchOfFrance();
    void getUpdate16Applied_data();
    void getUpdate16Applied() { checkProbe(&M::getUpdate16Applied); }
    void updateToVersion17_data();
    void updateToVersion17() { checkStep(&M::updateToVersion17); }
    void revertFromVersion17_data();
    void revertFromVersion17() { checkStep(&M::revertFromVersion17); }
    void getUpdate17Applied_data();
    void getUpdate17Applied() { checkProbe(&M::getUpdate17Applied); }
};

void Versions16To17Test::updateToVersion16_data()
{
    const QStringList succeeded("Migration to version 16 was successful.");
    const QStringList failed("Migration to version 16 FAILED!");
    const QByteArray languagesView = viewInPlaceOf("languages");
    const QByteArray namesakes = "CREATE TABLE userProfiles (id INTEGER PRIMARY KEY, "
                                 "language TEXT, \"en-US\" TEXT, \"es\" TEXT)";
    const QStringList others = {"it", "EN", " en", "en-GB", "fr-CA", ""};

    const auto row = addColumns<StepRun>("run");
    row("six languages get their country, their table is dropped",
        {languages + ";INSERT INTO languages VALUES('en'), ('es');" + speakers + ";" +
             insertSpeakers(QStringList{"en", "es", "fr", "de", "ru", "pt", "en"} + others) +
             "INSERT INTO userProfiles VALUES(20, NULL)",
         succeeded,
         16,
         QStringList(speakers) +
             speakersOf(
                 QStringList{"en-US", "es-ES", "fr-FR", "de-DE", "ru-RU", "pt-BR", "en-US"} +
                 others) +
             QStringList("20, NULL")});
    row("the languages are changed in order, their table is dropped last",
        {languages + ";INSERT INTO languages VALUES('en');" + speakers + ";" +
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
                 "'pt', 'pt-BR'"}});
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
    row("there is no table of languages: the profiles still change",
        {speakers + ";" + insertSpeakers({"en", "pt"}),
         failed,
         versionUnmoved,
         QStringList(speakers) + speakersOf({"en-US", "pt-BR"})});
    row("the languages are a view: the profiles still change",
        {speakers + ";" + insertSpeakers({"en", "pt"}) + languagesView,
         failed,
         versionUnmoved,
         QStringList{speakers, languagesView} + speakersOf({"en-US", "pt-BR"})});
    row("there are no profiles",
        {languages + ";" + speakers, succeeded, 16, {speakers, "userProfiles"}});
    row("there is no table of profiles: the languages are still dropped",
        {languages, failed, versionUnmoved, {}});
    row("a column with a language's name: its value is written",
        {languages + ";" + namesakes +
             ";INSERT INTO userProfiles VALUES(1, 'en', 'en-AU', ''), (2, 'es', '', ''), "
             "(3, 'ca', '', 'ca')",
         succeeded,
         16,
         {namesakes,
          "userProfiles",
          "1, 'en-AU', 'en-AU', ''",
          "2, 'es', '', ''",
          "3, 'es-ES', '', 'ca'"}});
    addRowOfClosedConnection(failed);
}

void Versions16To17Test::revertFromVersion16_data()
{
    const QStringList others = {"en-GB", "EN-US", "pt-PT", "it", "en"};

    const auto row = addColumns<StepRun>("run");
    row("seven locales lose their country, the table of languages is not created",
        {speakers + ";" +
             insertSpeakers(
                 QStringList{
                     "en-US", "es-ES", "fr-FR", "fr-CA", "de-DE", "ru-RU", "pt-BR", "en-US"} +
                 others) +
             "INSERT INTO userProfiles VALUES(20, NULL)",
         {},
         15,
         QStringList(speakers) +
             speakersOf(QStringList{"en", "es", "fr", "fr", "de", "ru", "pt", "en"} + others) +
             QStringList("20, NULL")});
    row("the locales are changed in order, an existing table of languages stays",
        {languages + ";INSERT INTO languages VALUES('en');" + speakers + ";" +
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
                 "'pt-BR', 'pt'"}});
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
    row("there is no table of profiles", {"", {}, 15, {}});
    addRowOfClosedConnection({}, 15);
}

void Versions16To17Test::canadianFrenchBecomesFrenchOfFrance()
{
    device->sql(speakers + ";" + insertSpeakers({"fr-CA"}));
    DatabaseMigrator &migrator = startAt(16);

    migrator.revertFromVersion16();
    QCOMPARE(migrator.currentVersion(), 15);
    device->sql(languages); // the device software makes it again
    migrator.updateToVersion16();

    COMPARE_LINES(device->takeLogLines(), QStringList("Migration to version 16 was successful."));
    QCOMPARE(migrator.currentVersion(), 16);
    COMPARE_LINES(device->dump(), QStringList(speakers) + speakersOf({"fr-FR"}));
}

void Versions16To17Test::getUpdate16Applied_data()
{
    const auto row = addColumns<QByteArray, bool>("before", "applied");
    row("there are languages", languages, false);
    row("there are no languages", "", true);
    row("the profiles are not looked at", speakers + ";" + insertSpeakers({"en"}), true);
    row("the languages have another letter case", "CREATE TABLE Languages (code)", true);
    row("the languages are a view", viewInPlaceOf("languages"), true);
}

void Versions16To17Test::updateToVersion17_data()
{
    const QByteArray insert = ";INSERT INTO internalGpsReceiverSettings VALUES";
    const QByteArray firmware = ", firmwareVersion VARCHAR[40])";
    const QString table = "supportedHarloReceiverSettings";

    const QStringList failed("Migration to version 17 FAILED!");
    const QStringList firmwareThere = addedBefore("firmwareVersion", table);

    const auto row = addColumns<StepRun>("run");
    row("the receivers are renamed and get an empty firmware version",
        {internalReceivers + ")" + insert + "(1, 38400), (2, NULL)",
         {"Migration to version 17 was successful."},
         17,
         {receiversRenamed + firmware, table, "1, 38400, NULL", "2, NULL, NULL"}});
    row("the receivers have the column already: they are still renamed",
        {internalReceivers + ", firmwareVersion)" + insert + "(1, 38400, '2.1')",
         firmwareThere + failed,
         versionUnmoved,
         {receiversRenamed + ", firmwareVersion)", table, "1, 38400, '2.1'"}});
    row("both tables are there: the column is still added",
        {internalReceivers + ")" + insert + "(1, 38400);" + supportedReceivers +
             ");INSERT INTO supportedHarloReceiverSettings VALUES(5, 9600)",
         failed,
         versionUnmoved,
         QStringList{internalReceivers + ")", supportedReceivers + firmware} +
             rowsOf("internalGpsReceiverSettings", {"1, 38400"}) +
             rowsOf(table, {"5, 9600, NULL"})});
    row("the step has run before",
        {supportedReceivers + firmware +
             ";INSERT INTO supportedHarloReceiverSettings VALUES(1, 38400, '2.1')",
         firmwareThere + failed,
         versionUnmoved,
         {supportedReceivers + firmware, table, "1, 38400, '2.1'"}});
    row("there is no table",
        {"", addedToNothing("firmwareVersion", table) + failed, versionUnmoved, {}});
    addRowOfClosedConnection(newColumnNotAdded("firmwareVersion", table, "") + failed);
}

void Versions16To17Test::revertFromVersion17_data()
{
    const QByteArray withFirmware =
        supportedReceivers +
        ", firmwareVersion VARCHAR[40]);"
        "INSERT INTO supportedHarloReceiverSettings VALUES(1, 38400, '2.1'), (2, NULL, NULL);";
    const QByteArray copy = "CREATE TABLE supportedHarloReceiverSettings_temp (a)";
    const QString table = "supportedHarloReceiverSettings";
    const QByteArray internalRebuilt =
        "CREATE TABLE \"internalGpsReceiverSettings\"" + receiversRebuilt;

    const auto row = addColumns<StepRun>("run");
    row("the receivers lose their firmware version and get their old name back",
        {withFirmware,
         {},
         16,
         {internalRebuilt, "internalGpsReceiverSettings", "1, 38400", "2, NULL"}});
    row("there is no firmware version",
        {supportedReceivers + ")", {}, 16, {internalRebuilt, "internalGpsReceiverSettings"}});
    row("the column cannot be dropped: the receivers are still renamed",
        {withFirmware + copy,
         columnStays("firmwareVersion", table, copyInTheWay(table)),
         16,
         {"CREATE TABLE \"internalGpsReceiverSettings\" (id INTEGER PRIMARY KEY, baudRate INTEGER, "
          "firmwareVersion VARCHAR[40])",
          copy,
          "internalGpsReceiverSettings",
          "1, 38400, '2.1'",
          "2, NULL, NULL",
          "supportedHarloReceiverSettings_temp"}});
    row("the old name is taken: the column is still dropped",
        {internalReceivers + ");" + withFirmware,
         {},
         16,
         QStringList{
             internalReceivers + ")",
             "CREATE TABLE \"supportedHarloReceiverSettings\"" + receiversRebuilt} +
             rowsOf("internalGpsReceiverSettings") + rowsOf(table, {"1, 38400", "2, NULL"})});
    row("there is no table", {"", columnStays("firmwareVersion", table, rebuildRefused), 16, {}});
    addRowOfClosedConnection(columnStays("firmwareVersion", table, ""), 16);
}

void Versions16To17Test::getUpdate17Applied_data()
{
    const auto row = addColumns<QByteArray, bool>("before", "applied");
    row("only the new table is there", supportedReceivers + ")", true);
    row("only the old table is there", internalReceivers + ")", false);
    row("both tables are there", supportedReceivers + ");" + internalReceivers + ")", false);
    row("there is no table", "", true);
    row("the old table has another letter case",
        "CREATE TABLE InternalGpsReceiverSettings (id)",
        true);
    row("the old table is a view", viewInPlaceOf("internalGpsReceiverSettings"), true);
}

QTEST_APPLESS_MAIN(Versions16To17Test)
#include "versions_16_to_17_test.moc"
