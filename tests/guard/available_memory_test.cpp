#include "guard/available_memory.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

namespace
{
const qint64 kibibyte = 1024;
const qint64 systemHas = 500000 * kibibyte;
} // namespace

class AvailableMemoryTest : public QObject
{
    Q_OBJECT

private slots:
    void isTheLeastOfAll_data();
    void isTheLeastOfAll();
    void isReadFromTheRealSystem();

private:
    using Files = QMap<QString, QByteArray>;
};

void AvailableMemoryTest::isTheLeastOfAll_data()
{
    QTest::addColumn<Files>("files");
    QTest::addColumn<qint64>("available");

    const QString groups = "sys/fs/cgroup/";
    const QByteArray unlimited1 = "9223372036854771712\n";
    QTest::newRow("no control group") << Files{} << systemHas;
    QTest::newRow("version 2 without a limit")
        << Files{{"proc/self/cgroup", "0::/app\n"}, {groups + "app/memory.max", "max\n"}}
        << systemHas;
    QTest::newRow("version 2")
        << Files{{"proc/self/cgroup", "0::/app\n"}, {groups + "app/memory.max", "100000\n"}, {groups + "app/memory.current", "30000\n"}}
        << qint64(70000);
    QTest::newRow("its file cache counts as free")
        << Files{{"proc/self/cgroup", "0::/app\n"}, {groups + "app/memory.max", "100000\n"}, {groups + "app/memory.current", "30000\n"}, {groups + "app/memory.stat", "anon 1\nfile 20000\nshmem 5000\ninactive_file 10000\nactive_file 4000\n"}}
        << qint64(84000);
    QTest::newRow("a group above it")
        << Files{{"proc/self/cgroup", "0::/slice/app\n"}, {groups + "slice/app/memory.max", "max\n"}, {groups + "slice/memory.max", "100000\n"}, {groups + "slice/memory.current", "90000\n"}}
        << qint64(10000);
    QTest::newRow("the root of a container")
        << Files{{"proc/self/cgroup", "0::/somewhere/else\n"}, {groups + "memory.max", "100000\n"}, {groups + "memory.current", "0\n"}}
        << qint64(100000);
    QTest::newRow("version 2 beside version 1")
        << Files{{"proc/self/cgroup", "4:memory:/\n0::/app\n"}, {groups + "memory/memory.limit_in_bytes", unlimited1}, {groups + "unified/app/memory.max", "100000\n"}}
        << qint64(100000);
    QTest::newRow("version 1")
        << Files{{"proc/self/cgroup", "5:cpu,cpuacct:/\n4:memory:/app\n"}, {groups + "memory/memory.limit_in_bytes", unlimited1}, {groups + "memory/app/memory.limit_in_bytes", "100000\n"}, {groups + "memory/app/memory.usage_in_bytes", "60000\n"}}
        << qint64(40000);
    QTest::newRow("more used than allowed")
        << Files{{"proc/self/cgroup", "0::/app\n"}, {groups + "app/memory.max", "100000\n"}, {groups + "app/memory.current", "130000\n"}}
        << qint64(0);
}

void AvailableMemoryTest::isTheLeastOfAll()
{
    QFETCH(Files, files);
    const QTemporaryDir root;
    files.insert("proc/meminfo", "MemTotal: 900000 kB\nMemFree: 1 kB\nMemAvailable:   500000 kB\n");
    for (auto file = files.begin(); file != files.end(); ++file) {
        const QString path = root.filePath(file.key());
        QDir().mkpath(QFileInfo(path).absolutePath());
        QFile made(path);
        QVERIFY(made.open(QIODevice::WriteOnly));
        made.write(file.value());
    }
    QTEST(availableMemory(root.path()), "available");
}

void AvailableMemoryTest::isReadFromTheRealSystem()
{
    QVERIFY(availableMemory() > 0);
}

QTEST_APPLESS_MAIN(AvailableMemoryTest)
#include "available_memory_test.moc"
