#include "schema/foreign_key_clauses.h"
#include "support/rows.h"

class ForeignKeyClausesTest : public QObject
{
    Q_OBJECT

private slots:
    void findsClauseEnd_data();
    void findsClauseEnd();
    void endOfAnEmptyTextIsBeforeIt();
    void extractsForeignKeys_data();
    void extractsForeignKeys();
};

void ForeignKeyClausesTest::findsClauseEnd_data()
{
    // The bar marks the place before the character at which the clause ends.
    const auto row = addColumns<QString>("text");
    row("the clause ends at the comma after it", "FOREIGN KEY (a) REFERENCES p(id)|, x");
    row("without a comma it ends at the last character", "FOREIGN KEY (a) REFERENCES p(id)|)");
    row("a text without parentheses ends at its last character", "a, b, |c");
    row("a comma before the first parenthesis does not count", "a, b (c|)");
    row("commas inside parentheses do not count in the last clause",
        "FOREIGN KEY (a, b) REFERENCES p(x, y)|)");
    row("a comma inside the second parentheses ends a clause of one column",
        "FOREIGN KEY (a) REFERENCES p(x|, y), z");
    row("one comma inside the first parentheses does not count",
        "FOREIGN KEY (a, b) REFERENCES p(x)|, FOREIGN KEY (c) REFERENCES q(y)");
    row("with commas inside both parentheses the end of the clause is missed",
        "FOREIGN KEY (a, b) REFERENCES p(x, y), FOREIGN KEY (c) REFERENCES q(z|)");
    row("with two commas inside the first parentheses the next clause is missed too",
        "FOREIGN KEY (a, b, c) REFERENCES p(x), FOREIGN KEY (d) REFERENCES q(y)|, "
        "FOREIGN KEY (e) REFERENCES r(z), f");
    row("without a closing parenthesis it ends at the first comma", "f(a|, b, c(d");
    row("after the last closing parenthesis a comma inside others counts", "f(a, b) g(c|, d");
    row("without an opening parenthesis no comma counts", "a), b), |c");
    row("after the last opening parenthesis the comma after the clause is missed", "f(a, b), |c");
    row("both searches start again and find the comma after the clause", "f(a, b, c)|, d");
    row("both searches start again and miss the comma after the clause", "f(a, b, c, d), |e");
    row("both searches start again twice", "f(a, b, c, d, e)|, g");
    row("the search for opening parentheses starts again, the other one goes on",
        "f(a, b) c), d)|, e");
    row("opening parentheses side by side count one by one", "f((a, b), c), |d");
    row("closing parentheses side by side count one by one", "f(a, (b))|, c)");
    row("commas side by side count one by one", "a,, b(c)|, d");
}

void ForeignKeyClausesTest::findsClauseEnd()
{
    QFETCH(QString, text);
    const int end = text.indexOf('|');
    text.remove(end, 1);

    QCOMPARE(findClauseEnd(text), end);
}

void ForeignKeyClausesTest::endOfAnEmptyTextIsBeforeIt()
{
    QCOMPARE(findClauseEnd(QString()), -1);
}

void ForeignKeyClausesTest::extractsForeignKeys_data()
{
    const auto row = addColumns<QString, QString, QString>("createText", "column", "clauses");
    row("no text", "", "zz", "");
    row("no clause", "CREATE TABLE t (a INT, b INT)", "zz", "");
    row("one clause, the last of the table",
        "CREATE TABLE t (a INT, b INT, FOREIGN KEY (a) REFERENCES p(id))",
        "b",
        "FOREIGN KEY (a) REFERENCES p(id),");
    row("one clause, followed by another constraint",
        "CREATE TABLE t (a INT, b INT, FOREIGN KEY (a) REFERENCES p(id), UNIQUE (a))",
        "b",
        "FOREIGN KEY (a) REFERENCES p(id),");
    row("several clauses in their order",
        "CREATE TABLE t (a INT, b INT, FOREIGN KEY (b) REFERENCES q(id) ON DELETE CASCADE , "
        "FOREIGN KEY (a) REFERENCES p(id),FOREIGN KEY(a)REFERENCES r(id))",
        "zz",
        "FOREIGN KEY (b) REFERENCES q(id) ON DELETE CASCADE ,"
        "FOREIGN KEY (a) REFERENCES p(id),FOREIGN KEY(a)REFERENCES r(id),");
    row("the column's own clause is dropped, the first one",
        "CREATE TABLE t (w1 INT, w2 INT, FOREIGN KEY (w1) REFERENCES p(id), "
        "FOREIGN KEY (w2) REFERENCES p(id))",
        "w1",
        "FOREIGN KEY (w2) REFERENCES p(id),");
    row("the column's own clause is dropped, the last one",
        "CREATE TABLE t (w1 INT, w2 INT, FOREIGN KEY (w1) REFERENCES p(id), "
        "FOREIGN KEY (w2) REFERENCES p(id))",
        "w2",
        "FOREIGN KEY (w1) REFERENCES p(id),");
    row("every clause is dropped",
        "CREATE TABLE t (w INT, FOREIGN KEY (w) REFERENCES p(id), FOREIGN KEY (w) REFERENCES q(id))",
        "w",
        "");
    row("a clause is dropped when its column's name contains the name",
        "CREATE TABLE t (id INT, fieldId INT, FOREIGN KEY (fieldId) REFERENCES p(x))",
        "id",
        "");
    row("a clause is dropped when its table's name contains the name",
        "CREATE TABLE t (id INT, a INT, FOREIGN KEY (a) REFERENCES grid(x))",
        "id",
        "");
    row("a clause is dropped when the column it refers to contains the name",
        "CREATE TABLE t (id INT, a INT, FOREIGN KEY (a) REFERENCES p(uuid))",
        "ID",
        "");
    row("a clause is dropped when its action contains the name",
        "CREATE TABLE t (case_ INT, a INT, FOREIGN KEY (a) REFERENCES p(x) ON DELETE CASCADE)",
        "cascade",
        "");
    row("a clause is dropped when its keywords contain the name",
        "CREATE TABLE t (key INT, a INT, FOREIGN KEY (a) REFERENCES p(x))",
        "key",
        "");
    row("every clause contains an empty name",
        "CREATE TABLE t (a INT, FOREIGN KEY (a) REFERENCES p(x))",
        "",
        "");
    row("the name elsewhere in the table does not count",
        "CREATE TABLE zz (zz INT, a INT, FOREIGN KEY (a) REFERENCES p(x), CHECK (zz > 0))",
        "zz",
        "FOREIGN KEY (a) REFERENCES p(x),");
    row("clauses of only small letters are not found",
        "CREATE TABLE t (a INT, foreign key (a) references p(x), Foreign Key (a) REFERENCES q(x))",
        "zz",
        "");
    row("clauses in small letters are found after one in capitals",
        "CREATE TABLE t (a INT, foreign key (a) REFERENCES p(x), FOREIGN KEY (a) REFERENCES q(x), "
        "foreign key (a) references r(x), Foreign Key (a) REFERENCES s(x))",
        "zz",
        "FOREIGN KEY (a) REFERENCES q(x),foreign key (a) references r(x),"
        "Foreign Key (a) REFERENCES s(x),");
    row("a clause of two columns, the last of the table",
        "CREATE TABLE t (a INT, b INT, FOREIGN KEY (a, b) REFERENCES p(x, y))",
        "zz",
        "FOREIGN KEY (a, b) REFERENCES p(x, y),");
    row("a clause of two columns includes the rest of the table",
        "CREATE TABLE t (a INT, b INT, FOREIGN KEY (a, b) REFERENCES p(x, y), "
        "FOREIGN KEY (b) REFERENCES q(z))",
        "w",
        "FOREIGN KEY (a, b) REFERENCES p(x, y), FOREIGN KEY (b) REFERENCES q(z),");
    row("a clause of two columns is dropped together with the next one",
        "CREATE TABLE t (a INT, w INT, FOREIGN KEY (a, b) REFERENCES p(x, y), "
        "FOREIGN KEY (w) REFERENCES q(z))",
        "w",
        "");
    row("a clause of two columns after others",
        "CREATE TABLE t (a INT, b INT, FOREIGN KEY (b) REFERENCES q(z), "
        "FOREIGN KEY (a, b) REFERENCES p(x, y))",
        "w",
        "FOREIGN KEY (b) REFERENCES q(z),FOREIGN KEY (a, b) REFERENCES p(x, y),");
    row("a clause of one column that refers to two is cut",
        "CREATE TABLE t (a INT, FOREIGN KEY (a) REFERENCES p(x, y))",
        "w",
        "FOREIGN KEY (a) REFERENCES p(x,");
    row("the text after the last clause is kept with it, except for its last character",
        "CREATE TABLE t (a INT PRIMARY KEY, FOREIGN KEY (a) REFERENCES p(x)\n) WITHOUT ROWID",
        "zz",
        "FOREIGN KEY (a) REFERENCES p(x)\n) WITHOUT ROWI,");
    row("the keyword inside a text counts as a clause",
        "CREATE TABLE t (a TEXT DEFAULT 'FOREIGN KEY', b INT)",
        "zz",
        "FOREIGN KEY', b INT,");
    row("the keyword with other white space is not found",
        "CREATE TABLE t (a INT, FOREIGN  KEY (a) REFERENCES p(x), FOREIGN\nKEY (a) REFERENCES q(x))",
        "zz",
        "");
}

void ForeignKeyClausesTest::extractsForeignKeys()
{
    QFETCH(QString, createText);
    QFETCH(QString, column);

    QTEST(extractForeignKeys(createText, column), "clauses");
}

QTEST_APPLESS_MAIN(ForeignKeyClausesTest)
#include "foreign_key_clauses_test.moc"
