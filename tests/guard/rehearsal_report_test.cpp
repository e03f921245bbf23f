#include "guard/rehearsal_report.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QtTest>

class RehearsalReportTest : public QObject
{
    Q_OBJECT

private slots:
    void tellsAllOfALog();
    void leavesOutWhatIsTheFarms();
    void tellsOneDatabaseOfSeveralInALine();
};

namespace
{
Rehearsal rehearsalWithSecrets()
{
    Rehearsal rehearsal;
    rehearsal.database = "/stick/\n\u202eof Smith.sqlite";
    rehearsal.log = QByteArray("before\0after Smith", 18);
    rehearsal.assumed = QStringList{"platform"};
    rehearsal.record.endUnchanged("copy-failed", "Smith");
    rehearsal.steps = {
        {26, true, RehearsedStep::Outcome::Failed, {QByteArray("a\0b", 3), "Smith"}},
        {27, true, RehearsedStep::Outcome::NotReached, {}}};
    return rehearsal;
}
} // namespace

void RehearsalReportTest::tellsAllOfALog()
{
    const QJsonObject json = rehearsalReport::toJson(rehearsalWithSecrets(), true);

    QCOMPARE(json.value("log").toString(), QString("before") + QChar(0) + "after Smith");
    const QJsonObject failed = json.value("versions").toArray().first().toObject();
    QCOMPARE(
        failed.value("lines").toArray(),
        (QJsonArray{QString("a") + QChar(0) + "b", QString("Smith")}));
}

void RehearsalReportTest::leavesOutWhatIsTheFarms()
{
    const QJsonObject json = rehearsalReport::toJson(rehearsalWithSecrets(), false);

    QVERIFY(!QJsonDocument(json).toJson().contains("Smith"));
    QCOMPARE(json.value("log"), QJsonValue());
    const QJsonArray versions = {
        QJsonObject{{"version", 26}, {"direction", "forward"}, {"outcome", "failed"}},
        QJsonObject{{"version", 27}, {"direction", "forward"}, {"outcome", "not-reached"}}};
    QCOMPARE(json.value("versions").toArray(), versions);
}

void RehearsalReportTest::tellsOneDatabaseOfSeveralInALine()
{
    const QString line =
        "rehearsal: from unknown to unknown, not changed, copy-failed (Smith), status 3";

    QCOMPARE(
        rehearsalReport::lines(rehearsalWithSecrets(), true),
        QStringList{"/stick/??of Smith.sqlite: " + line});
    QCOMPARE(
        rehearsalReport::lines(rehearsalWithSecrets(), false),
        (QStringList{line, "assumed: platform"}));
}

QTEST_GUILESS_MAIN(RehearsalReportTest)
#include "rehearsal_report_test.moc"
