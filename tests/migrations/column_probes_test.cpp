#include "support/step_test.h"

// The probes that look for columns and for nothing else.

namespace
{
/// A probe that looks for a column, among others or alone.
const struct {
    int version;
    Probe probe;
    QByteArray table;
    QByteArray column;
    QByteArray otherColumns; ///< the other columns that the probe looks for
    bool appliedAsFirst;     ///< its answer where the column is the table's first
    bool appliedWithoutTable;
} columnProbes[] = {
    {3, &M::getUpdate3Applied, "ombrixMasterSettings", "ombrixEnabled", "", false, false},
    {4, &M::getUpdate4Applied, "systemControl", "languageSelected", "", false, false},
    {5, &M::getUpdate5Applied, "MC_EquipmentSection", "fence", "", false, false},
    {6, &M::getUpdate6Applied, "MC_EquipmentSectionGroup", "isoNodeName", "", false, false},
    {8, &M::getUpdate8Applied, "userProfiles", "decimalMark", "", false, false},
    {13, &M::getUpdate13Applied, "userProfiles", "acceptedEULA", "", true, false},
    {14, &M::getUpdate14Applied, "preferredGpsSolutions", "filterLevel", "", true, true},
    {15, &M::getUpdate15Applied, "MC_EquipmentSectionGroup", "useEcuOffsets", "", true, false},
    {18, &M::getUpdate18Applied, "JP_JobProfile", "guidanceType", "", true, false},
    {20,
     &M::getUpdate20Applied,
     "userProfiles",
     "audibleBackingUpWarningEnabled",
     ", audioVolumePercent",
     true,
     false},
    {20,
     &M::getUpdate20Applied,
     "userProfiles",
     "audioVolumePercent",
     ", audibleBackingUpWarningEnabled",
     true,
     false},
};

} // namespace

class ColumnProbesTest : public StepTest
{
    Q_OBJECT

private slots:
    void probes_data();
    void probes() { checkProbe(); }
    void laterProbes_data();
    void laterProbes() { probes(); }
};

void ColumnProbesTest::probes_data()
{
    QTest::addColumn<Probe>("probe");
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<bool>("applied");

    for (const auto &entry : columnProbes) {
        const auto row = [&](const char *sentence, const QByteArray &before, bool applied) {
            QTest::addRow("version %d: %s %s", entry.version, entry.column.constData(), sentence)
                << entry.probe << before << applied;
        };
        const QByteArray create = "CREATE TABLE " + entry.table;
        const QByteArray createInCapitals = "CREATE TABLE " + entry.table.toUpper();
        const QByteArray others = " (id" + entry.otherColumns;
        row("is the last column", create + others + ", " + entry.column + ")", true);
        row("is the second column",
            create + " (id, " + entry.column + entry.otherColumns + ")",
            true);
        row("is the first column",
            create + " (" + entry.column + ", id" + entry.otherColumns + ")",
            entry.appliedAsFirst);
        row("is missing", create + others + ")", false);
        row("has another letter case",
            create + others + ", " + entry.column.toUpper() + ")",
            false);
        row("is part of another name", create + others + ", " + entry.column + "2)", false);
        row("is there, the table has another letter case",
            createInCapitals + others + ", " + entry.column + ")",
            true);
        row("is missing, the table has another letter case",
            createInCapitals + others + ")",
            entry.appliedWithoutTable);
        row("has no table", "", entry.appliedWithoutTable);
    }
}

void ColumnProbesTest::laterProbes_data()
{
    QTest::addColumn<Probe>("probe");
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<bool>("applied");

    const struct {
        int version;
        Probe probe;
        QMap<QByteArray, QList<QByteArray>> tables;
    } columns[] = {
        {26,
         &M::getUpdate26Applied,
         {{"supportedHarloReceiverSettings",
           {"ppp_STD_DEV", "terraStar_STD_DEV", "terraStarL_STD_DEV"}}}},
        {28,
         &M::getUpdate28Applied,
         {{"VideoCaptureConfigurationSetup", {"cameraReversePopupEnabled"}}}},
        {29,
         &M::getUpdate29Applied,
         {{"reverseSenseSettings",
           {"enableHardwiredReverseSense", "overrideHardwiredReverseSenseDefaultDirection"}}}},
        {30, &M::getUpdate30Applied, {{"systemControl", {"wirelessEnabled"}}}},
        {31,
         &M::getUpdate31Applied,
         {{"PC_Carrier", {"uuid"}}, {"PC_Mix", {"uuid"}}, {"PC_PlanterVariety", {"uuid"}}}},
    };
    for (const auto &[version, probe, tables] : columns) {
        QByteArray all;
        for (auto table = tables.begin(); table != tables.end(); ++table) {
            all += "CREATE TABLE " + table.key() + " (id, " + table->join(", ") + ");";
        }
        QTest::addRow("version %d: all columns", version) << probe << all << true;
        QTest::addRow("version %d: all columns in another letter case", version)
            << probe << all.toUpper() << true;
        QTest::addRow("version %d: there is no table", version) << probe << QByteArray() << false;
        for (auto table = tables.begin(); table != tables.end(); ++table) {
            const char *const name = table.key().constData();
            for (const QByteArray &column : *table) {
                QTest::addRow("version %d: %s.%s is missing", version, name, column.constData())
                    << probe << all + "ALTER TABLE " + table.key() + " DROP COLUMN " + column
                    << false;
            }
            QTest::addRow("version %d: the table %s is missing", version, name)
                << probe << all + "DROP TABLE " + table.key() << false;
        }
    }
}

QTEST_APPLESS_MAIN(ColumnProbesTest)
#include "column_probes_test.moc"
