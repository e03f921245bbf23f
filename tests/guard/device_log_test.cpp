#include "guard/device_log.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

#include <cerrno>
#include <csignal>
#include <sys/resource.h>

namespace
{
/// Lets no file of this process grow beyond a size, as a full disk does, until it is destroyed.
class LargestFile
{
public:
    explicit LargestFile(rlim_t size)
    {
        signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &m_before);
        const rlimit limit = {size, m_before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~LargestFile() { setrlimit(RLIMIT_FSIZE, &m_before); }
    Q_DISABLE_COPY(LargestFile)

private:
    rlimit m_before;
};

void write(const QString &path, const QByteArray &content)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(content);
}

QByteArray read(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}
} // namespace

class DeviceLogTest : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_directory.reset(new QTemporaryDir); }
    void appends();
    void makesTheFile();
    void cutsBackWhatStopsHalfWay();
    void cutsBackWhenAsked();
    void doesWithoutALogThatIsNoFileToWriteTo();
    void failsWhereTheSystemFails();
    void followsALink();

private:
    QString path() const { return m_directory->filePath("log.txt"); }

    QScopedPointer<QTemporaryDir> m_directory;
};

void DeviceLogTest::appends()
{
    write(path(), "before\n");
    DeviceLog log(path());
    QCOMPARE(log.append("one\ntwo\n", true), 0);
    QCOMPARE(read(path()), QByteArray("before\none\ntwo\n"));
    QCOMPARE(log.newIn(), QString());
}

void DeviceLogTest::makesTheFile()
{
    DeviceLog log(path());
    QCOMPARE(log.append("one\n", false), 0);
    QCOMPARE(read(path()), QByteArray("one\n"));
    QCOMPARE(log.newIn(), QFileInfo(m_directory->path()).canonicalFilePath());
}

void DeviceLogTest::cutsBackWhatStopsHalfWay()
{
    write(path(), "before\n");
    DeviceLog log(path());
    {
        const LargestFile limit(10);
        QCOMPARE(log.append("one\ntwo\n", true), EFBIG);
    }
    QCOMPARE(read(path()), QByteArray("before\n"));
}

void DeviceLogTest::cutsBackWhenAsked()
{
    write(path(), "before\n");
    DeviceLog log(path());
    QCOMPARE(log.append("one\n", true), 0);
    log.cutBack();
    QCOMPARE(read(path()), QByteArray("before\n"));

    QVERIFY(QFile::remove(path()));
    DeviceLog newLog(path());
    QCOMPARE(newLog.append("one\n", true), 0);
    newLog.cutBack();
    QVERIFY2(!QFile::exists(path()), "there was none before");
}

void DeviceLogTest::doesWithoutALogThatIsNoFileToWriteTo()
{
    QDir().mkdir(path());
    DeviceLog log(path());
    QCOMPARE(log.append("one\n", true), 0);
    QCOMPARE(log.newIn(), QString());
    log.cutBack();
    QVERIFY(QFileInfo(path()).isDir());

    const QString link = m_directory->filePath("link");
    QFile::link("/nowhere/at/all", link);
    QCOMPARE(DeviceLog(link).append("one\n", true), 0);
}

void DeviceLogTest::failsWhereTheSystemFails()
{
    for (const bool isThere : {false, true}) {
        if (isThere) {
            write(path(), "before\n");
        }
        rlimit before;
        getrlimit(RLIMIT_NOFILE, &before);
        const rlimit none = {0, before.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
        DeviceLog log(path());
        const int error = log.append("one\n", true);
        setrlimit(RLIMIT_NOFILE, &before);
        QCOMPARE(error, EMFILE);
        log.cutBack();
        QCOMPARE(read(path()), isThere ? QByteArray("before\n") : QByteArray());
    }
}

void DeviceLogTest::followsALink()
{
    QDir(m_directory->path()).mkdir("elsewhere");
    const QString target = m_directory->filePath("elsewhere/log.txt");
    QFile::link(target, path());
    DeviceLog log(path());
    QCOMPARE(log.append("one\n", true), 0);
    QCOMPARE(read(target), QByteArray("one\n"));
    QCOMPARE(log.newIn(), QFileInfo(target).absolutePath());
}

QTEST_APPLESS_MAIN(DeviceLogTest)
#include "device_log_test.moc"
