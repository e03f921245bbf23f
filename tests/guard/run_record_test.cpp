#include "guard/last_migration.h"
#include "guard/limits.h"
#include "guard/run_record.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QTemporaryDir>
#include <QtTest>

#include <cerrno>
#include <limits>
#include <sqlite3.h>

using Kind = DatabaseFailure::Kind;
Q_DECLARE_METATYPE(Kind)

class RunRecordTest : public QObject
{
    Q_OBJECT

private slots:
    void endWith_data();
    void endWith();
    void sqliteFailures_data();
    void sqliteFailures();
    void systemFailures_data();
    void systemFailures();
    void unknownVersions_data();
    void unknownVersions();
    void largestRecord();
};

namespace
{
RecordedVersion number(qint64 version)
{
    RecordedVersion known;
    known.isKnown = true;
    known.number = version;
    return known;
}

/// A verdict with more than is recorded, each entry as long as names and numbers can make it.
Verdict endlessVerdict(int entries)
{
    Verdict verdict;
    const QByteArray name(2000, '\n');
    for (int index = 0; index < entries; ++index) {
        Finding finding;
        finding.kind = "mended";
        finding.mending = "rows-returned";
        for (const char *number : {"rows", "rowsBefore", "rowsAfter", "rowsReturned"}) {
            finding.numbers.insert(number, std::numeric_limits<qint64>::min());
        }
        finding.object = finding.column = finding.table = name + QByteArray::number(index);
        verdict.findings << finding;
        TableNumbers table;
        table.name = finding.object;
        table.rowsBefore = table.rowsAfter = table.rowsGone = table.rowsNew =
            std::numeric_limits<qint64>::min();
        verdict.tables << table;
        verdict.unknownVersions << limits::largestVersion;
    }
    return verdict;
}
} // namespace

void RunRecordTest::endWith_data()
{
    QTest::addColumn<Kind>("kind");
    QTest::addColumn<QString>("line");
    QTest::addColumn<QJsonValue>("to");
    QTest::addColumn<QJsonValue>("changed");

    const auto row = [](const char *name, Kind kind, const QString &reason) {
        QTest::newRow(name) << kind
                            << "from 1 to 1, target 34, guarded, not changed, " + reason +
                                   " (the words), status 3"
                            << QJsonValue(1) << QJsonValue(false);
    };
    row("locked", Kind::Locked, "locked");
    row("written", Kind::Written, "written-meanwhile");
    row("replaced", Kind::Replaced, "replaced");
    row("no room", Kind::NoRoom, "no-room");
    row("not writable", Kind::NotWritable, "commit-failed");
    row("damaged", Kind::Damaged, "commit-failed");
    row("failed", Kind::Failed, "commit-failed");
    QTest::newRow("not flushed") << Kind::NotFlushed
                                 << "from 1 to 34, target 34, guarded, changed, not-flushed "
                                    "(the words), status 4"
                                 << QJsonValue(34) << QJsonValue(true);
    QTest::newRow("unknown: nothing is claimed")
        << Kind::Unknown
        << "from 1 to unknown, target 34, guarded, commit-unknown (the words), status 3"
        << QJsonValue() << QJsonValue();
}

void RunRecordTest::endWith()
{
    QFETCH(Kind, kind);
    QFETCH(QJsonValue, to);
    QFETCH(QJsonValue, changed);
    RunRecord record;
    record.target = 34;
    record.from = number(1);
    record.to = number(34);
    record.changed = true;
    record.kept = true;

    record.endWith({kind, "the words"}, "commit-failed");
    QFETCH(QString, line);
    QCOMPARE(record.lines(), QStringList{line});
    QCOMPARE(record.toJson().value("to"), to);
    QCOMPARE(record.toJson().value("changed"), changed);
    QCOMPARE(record.toJson().contains("kept"), kind == Kind::NotFlushed);
}

void RunRecordTest::sqliteFailures_data()
{
    QTest::addColumn<int>("result");
    QTest::addColumn<Kind>("kind");

    QTest::newRow("busy") << SQLITE_BUSY << Kind::Locked;
    QTest::newRow("locks of a write-ahead log") << SQLITE_PROTOCOL << Kind::Locked;
    QTest::newRow("full") << SQLITE_FULL << Kind::NoRoom;
    QTest::newRow("no room for an index") << SQLITE_IOERR_SHMSIZE << Kind::NoRoom;
    QTest::newRow("read-only") << SQLITE_READONLY << Kind::NotWritable;
    QTest::newRow("moved") << SQLITE_READONLY_DBMOVED << Kind::Replaced;
    QTest::newRow("no memory") << SQLITE_NOMEM << Kind::Failed;
    QTest::newRow("a failing disk") << SQLITE_IOERR << Kind::Failed;
    QTest::newRow("a flush that fails") << SQLITE_IOERR_FSYNC << Kind::Failed;
    QTest::newRow("damage") << SQLITE_CORRUPT << Kind::Damaged;
    QTest::newRow("not a database") << SQLITE_NOTADB << Kind::Damaged;
}

void RunRecordTest::sqliteFailures()
{
    QFETCH(int, result);
    QFETCH(Kind, kind);
    QVERIFY(sqliteFailure(result, "the words").kind == kind);
}

void RunRecordTest::systemFailures_data()
{
    QTest::addColumn<int>("error");
    QTest::addColumn<Kind>("kind");

    QTest::newRow("full") << ENOSPC << Kind::NoRoom;
    QTest::newRow("over the quota") << EDQUOT << Kind::NoRoom;
    QTest::newRow("read-only") << EROFS << Kind::NotWritable;
    QTest::newRow("not allowed") << EACCES << Kind::NotWritable;
    QTest::newRow("a directory") << EISDIR << Kind::NotWritable;
    QTest::newRow("the name is taken") << EEXIST << Kind::NotWritable;
    QTest::newRow("gone") << ENOENT << Kind::Replaced;
    QTest::newRow("a failing disk") << EIO << Kind::Failed;
    QTest::newRow("no memory") << ENOMEM << Kind::Failed;
}

void RunRecordTest::systemFailures()
{
    QFETCH(int, error);
    QFETCH(Kind, kind);
    const DatabaseFailure failure = systemFailure(error, "log");
    QVERIFY(failure.kind == kind);
    QCOMPARE(failure.text, "log: " + systemText(error));
}

void RunRecordTest::unknownVersions_data()
{
    QTest::addColumn<QVector<int>>("versions");
    QTest::addColumn<QStringList>("lines");

    const QString several = "what versions %1 take is not known here: their losses were not judged";
    QTest::newRow("all are known") << QVector<int>{} << QStringList{};
    QTest::newRow("one") << QVector<int>{27}
                         << QStringList{"what version 27 takes is not known here: "
                                        "its losses were not judged"};
    QTest::newRow("two") << QVector<int>{28, 27} << QStringList{several.arg("27 and 28")};
    QTest::newRow("several") << QVector<int>{27, 31, 32}
                             << QStringList{several.arg("27, 31 and 32")};
    QTest::newRow("many") << QVector<int>{34, 9, 27, 28, 29, 30}
                          << QStringList{several.arg("9, 27 to 30 and 34")};
}

void RunRecordTest::unknownVersions()
{
    QFETCH(QVector<int>, versions);
    QFETCH(QStringList, lines);
    RunRecord record;
    record.verdict = Verdict();
    record.verdict->unknownVersions = versions;
    QCOMPARE(record.lines().mid(1), lines);
}

void RunRecordTest::largestRecord()
{
    constexpr int leftOut = 7;
    const QTemporaryDir directory;
    const QString path = directory.filePath("lastMigration.json");
    RunRecord record;
    record.from = number(1);
    record.to = number(34);
    record.changed = true;
    record.verdict = endlessVerdict(limits::recordedEntries + leftOut);

    QVERIFY(LastMigration(path).record(record, false));
    QVERIFY2(
        QFileInfo(path).size() < limits::largestJson / 2,
        qPrintable(QString::number(QFileInfo(path).size())));
    const LastMigration read(path);
    for (const QJsonObject &run : {read.lastRun(), read.lastChange()}) {
        const QJsonObject verdict = run.value("verdict").toObject();
        for (const char *list : {"findings", "tables", "unknownVersions"}) {
            QCOMPARE(verdict.value(list).toArray().size(), limits::recordedEntries);
            QCOMPARE(verdict.value("leftOut").toObject().value(list).toInt(), leftOut);
        }
    }
}

QTEST_GUILESS_MAIN(RunRecordTest)
#include "run_record_test.moc"
