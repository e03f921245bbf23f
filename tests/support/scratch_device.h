#pragma once

#include "app/database_migrator.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <memory>
#include <vector>

/// Compares two lists of lines, such as rows, schemas and dumps.
#define COMPARE_LINES(actual, expected)                                                            \
    do {                                                                                           \
        const QByteArray difference = differenceOf(actual, expected);                              \
        QVERIFY2(difference.isEmpty(), difference);                                                \
    } while (false)

/// @return the lines that differ, marked as actual and expected, empty when there are none
QByteArray differenceOf(const QStringList &actual, const QStringList &expected);

/// The field computer that a test program runs on. The fixed paths belong to a scratch directory,
/// see on_device.sh. A test program that on_device.sh has not started ends at once.
class ScratchDevice
{
public:
    /// Removes what an earlier test left and makes an empty "databases" directory.
    ScratchDevice();
    ~ScratchDevice();

    /// The fixed paths.
    static const QString databasePath;
    static const QString logPath;
    static const QString softwareVersionPath;
    static const QString platformPath;
    static const QString registrationPath;
    static const QString poolPath;

    /// Writes a file and the directories above it.
    static void writeFile(const QString &path, const QByteArray &content);
    /// @return the content of a file, empty if there is none
    static QByteArray readFile(const QString &path);

    /// Runs statements on the database, over a connection of their own; a failure ends the test
    /// program. Foreign keys are off there: a test can break rows on purpose.
    void sql(const QByteArray &statements);
    /// Makes `tableVersion` with both rows, with a MirelVersion column.
    void recordVersion(int version);

    /// @return the rows of a query, each with its values as SQL literals, separated by ", "
    QStringList rows(const QByteArray &query);
    /// @return the CREATE texts of the database in the order of its schema table
    QStringList schema();
    /// @return the CREATE text of one table, empty if there is none
    QString createText(const QByteArray &table);
    /// @return the CREATE text and the rows of each table that is there
    QStringList contents(const QList<QByteArray> &tables);
    /// @return the schema, then every table's name with its rows
    QStringList dump();

    /// Overwrites a page that holds rows of a table with another of its pages, or with nonsense.
    void overwriteLeaf(const QByteArray &table, int leaf, int copiedLeaf = -1);

    /// Constructs the migrator, as `main` does; an earlier one is destroyed first.
    DatabaseMigrator &start(const QStringList &arguments = {});
    /// @return the migrator that was started
    DatabaseMigrator &migrator() { return *m_migrator; }
    /// Destroys the migrator.
    void stop();

    /// Lets SQLite refuse an action of the migrator's connection from now on.
    /// @param action SQLite's authorizer action, such as SQLITE_DROP_TABLE
    /// @param object its first argument, mostly the table's name; empty for every one
    /// @param part its second argument, mostly the column's name; empty for every one
    void refuse(int action, const QByteArray &object, const QByteArray &part = QByteArray());
    /// Lets SQLite interrupt the migrator once: the statement that runs after this many more
    /// instructions of the virtual machine.
    void interruptAfter(int instructions);
    /// Ends every refusal.
    void allowAll();

    /// @return the log's text since the last call
    QString takeLog();
    /// @return the same as lines; a last line without an end of line is marked
    QStringList takeLogLines();

private:
    std::vector<QByteArray> m_arguments;
    std::vector<char *> m_argumentPointers;
    int m_argumentCount = 0;
    std::unique_ptr<DatabaseMigrator> m_migrator;
    qint64 m_logTaken = 0;
};
