#include "guard/root_directory.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

class RootDirectoryTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void resolvesLinksAsInside_data();
    void resolvesLinksAsInside();
    void keepsEntriesInMemory();

private:
    QString base() const { return m_directory.path(); }

    QTemporaryDir m_directory;
};

void RootDirectoryTest::initTestCase()
{
    QVERIFY(QDir(base()).mkpath("usr/lib/app"));
    QVERIFY(QDir(base()).mkpath("data"));
    const QVector<std::pair<QString, QString>> links = {
        {"usr/lib", "/lib"},
        {"/data/databases", "/usr/lib/app/databases"},
        {"../../../../../data", "/usr/lib/app/above"},
        {"/nowhere/at/all", "/broken"},
        {"circle", "/circle"},
        {"lib/app", "/app"}};
    for (const auto &[text, path] : links) {
        QVERIFY(QFile::link(text, base() + path));
    }
    QVERIFY(QFile::link("/data", base() + "/data/link1"));
    for (int number = 2; number <= 41; ++number) {
        const QString name = base() + "/data/link%1";
        QVERIFY(QFile::link(QString("/data/link%1").arg(number - 1), name.arg(number)));
    }
}

void RootDirectoryTest::resolvesLinksAsInside_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("resolved");

    QTest::newRow("no link") << "/usr/lib"
                             << "/usr/lib";
    QTest::newRow("the root") << "/"
                              << "/";
    QTest::newRow("a relative link") << "/lib/app"
                                     << "/usr/lib/app";
    QTest::newRow("an absolute link begins inside the other root") << "/lib/app/databases"
                                                                   << "/data/databases";
    QTest::newRow("what is missing stays") << "/lib/app/databases/my.db"
                                           << "/data/databases/my.db";
    QTest::newRow("links in a row") << "/app/databases"
                                    << "/data/databases";
    QTest::newRow("the root is its own parent") << "/app/above"
                                                << "/data";
    QTest::newRow("dots") << "/usr/./lib//app/../app"
                          << "/usr/lib/app";
    QTest::newRow("a link to nothing") << "/broken/x"
                                       << "/nowhere/at/all/x";
    QTest::newRow("a circle leads nowhere") << "/circle"
                                            << "";
    QTest::newRow("as many links as the kernel follows") << "/data/link40"
                                                         << "/data";
    QTest::newRow("one more leads nowhere, and not out") << "/data/link41/x"
                                                         << "";
}

void RootDirectoryTest::resolvesLinksAsInside()
{
    QFETCH(QString, path);
    QFETCH(QString, resolved);

    QCOMPARE(rootDirectory::resolve(base(), path), resolved);
}

void RootDirectoryTest::keepsEntriesInMemory()
{
    const QStringList expected = {
        "--tmpfs",
        "/",
        "--symlink",
        "lib/app",
        "/app",
        "--symlink",
        "/nowhere/at/all",
        "/broken",
        "--symlink",
        "circle",
        "/circle",
        "--symlink",
        "usr/lib",
        "/lib",
        "--ro-bind",
        base() + "/usr",
        "/usr"};

    QCOMPARE(rootDirectory::inMemory(base(), "--ro-bind", "/data"), expected);
}

QTEST_GUILESS_MAIN(RootDirectoryTest)
#include "root_directory_test.moc"
