#include "schema/rebuild_statements.h"
#include "support/rows.h"

Q_DECLARE_METATYPE(TableInfo)

// Tests only the texts, without a database. table_rebuild_test executes them.
class RebuildStatementsTest : public QObject
{
    Q_OBJECT

private slots:
    void composesTheCreateStatement_data();
    void composesTheCreateStatement();
    void composesTheOtherStatements();
};

namespace
{
/// A column as PRAGMA table_info describes it.
struct Column {
    QString name;
    QString type;
    QString notNull;
    QString defaultValue;
    QString keyPosition;
};

TableInfo table(const QVector<Column> &columns, const QString &createText = QString())
{
    TableInfo info;
    for (const Column &column : columns) {
        info.columnNames << column.name;
        info.columnTypes << column.type;
        info.notNullFlags << column.notNull;
        info.defaultValues << column.defaultValue;
        info.primaryKeyPositions << column.keyPosition;
    }
    info.createText = createText;
    return info;
}

const Column id = {"id", "INTEGER", "0", "", "1"};
const Column old = {"old", "INT", "0", "", "0"};
} // namespace

void RebuildStatementsTest::composesTheCreateStatement_data()
{
    const auto row = addColumns<TableInfo, QString>("info", "create");
    row("NOT NULL, a default and the key are kept",
        table({{"id", "INTEGER", "1", "", "1"}, {"name", "TEXT", "0", "'x'", "0"}, old}),
        "CREATE TABLE t_temp (id INTEGER NOT NULL  , name TEXT DEFAULT 'x' , PRIMARY KEY(id) )");
    row("NOT NULL and a default follow each other",
        table({id, {"a", "REAL", "1", "0.5", "0"}, old}),
        "CREATE TABLE t_temp (id INTEGER , a REAL NOT NULL  DEFAULT 0.5 , PRIMARY KEY(id) )");
    row("a column without a type keeps the blank after its name",
        table({id, {"a", "", "0", "", "0"}, old}),
        "CREATE TABLE t_temp (id INTEGER , a  , PRIMARY KEY(id) )");
    row("the column is dropped in any letter case",
        table({id, {"OLD", "INT", "1", "1", "0"}}),
        "CREATE TABLE t_temp (id INTEGER , PRIMARY KEY(id) )");
    row("a column that is not there changes nothing",
        table({id, {"older", "INT", "0", "", "0"}}),
        "CREATE TABLE t_temp (id INTEGER , older INT , PRIMARY KEY(id) )");
    row("the key keeps its own order",
        table(
            {{"a", "INT", "0", "", "2"},
             old,
             {"b", "INT", "0", "", "3"},
             {"c", "INT", "0", "", "1"}}),
        "CREATE TABLE t_temp (a INT , b INT , c INT , PRIMARY KEY(c,a,b) )");
    row("a dropped column leaves an empty name in the key",
        table(
            {{"a", "INT", "0", "", "1"}, {"old", "INT", "0", "", "2"}, {"b", "INT", "0", "", "3"}}),
        "CREATE TABLE t_temp (a INT , b INT , PRIMARY KEY(a,) )");
    row("a table without a key gets an empty key clause",
        table({{"a", "INT", "0", "", "0"}, old}),
        "CREATE TABLE t_temp (a INT , PRIMARY KEY() )");
    row("without columns only the empty key clause is left",
        TableInfo(),
        "CREATE TABLE t_temp (PRIMARY KEY() )");
    row("of two columns with one position the later one is in the key",
        table({id, {"a", "INT", "0", "", "1"}}),
        "CREATE TABLE t_temp (id INTEGER , a INT , PRIMARY KEY(a) )");
    row("foreign keys follow the key, except those with the column",
        table(
            {id, {"a", "INT", "0", "", "0"}, old},
            "CREATE TABLE t (id INTEGER PRIMARY KEY, a INT, old INT, "
            "FOREIGN KEY (old) REFERENCES p(x), FOREIGN KEY (a) REFERENCES q(x))"),
        "CREATE TABLE t_temp (id INTEGER , a INT , PRIMARY KEY(id) , "
        "FOREIGN KEY (a) REFERENCES q(x))");
    row("markers in a default are data",
        table({id, {"a", "TEXT", "0", "'%1 %2'", "0"}, old}),
        "CREATE TABLE t_temp (id INTEGER , a TEXT DEFAULT '%1 %2' , PRIMARY KEY(id) )");
}

void RebuildStatementsTest::composesTheCreateStatement()
{
    QFETCH(TableInfo, info);

    QTEST(composeRebuild("t", info, "old").create, "create");
}

void RebuildStatementsTest::composesTheOtherStatements()
{
    const RebuildStatements rebuild =
        composeRebuild("t", table({id, old, {"a", "INT", "0", "", "0"}}), "old");

    QCOMPARE(rebuild.copyRows, QString("INSERT INTO t_temp SELECT id,a FROM t"));
    QCOMPARE(rebuild.drop, QString("DROP TABLE t"));
    QCOMPARE(rebuild.rename, QString("ALTER TABLE t_temp RENAME TO t"));
}

QTEST_APPLESS_MAIN(RebuildStatementsTest)
#include "rebuild_statements_test.moc"
