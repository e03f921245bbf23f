#include "schema/foreign_key_clauses.h"

#include <QtTest>

class ForeignKeyClausesTest : public QObject
{
    Q_OBJECT

private slots:
    void findsClauseEnd_data();
    void findsClauseEnd();
    void endOfAnEmptyTextLiesBeforeIt();
    void extractsForeignKeys_data();
    void extractsForeignKeys();
};

void ForeignKeyClausesTest::findsClauseEnd_data()
{
    // The bar stands before the character at which the clause ends.
    QTest::addColumn<QString>("text");

    QTest::newRow("the comma behind the clause") << "FOREIGN KEY (a) REFERENCES p(id)|, x";
    QTest::newRow("the last character without a comma") << "FOREIGN KEY (a) REFERENCES p(id)|)";
    QTest::newRow("the last character of a text without parentheses") << "a, b, |c";
    QTest::newRow("a comma before the first parenthesis does not count") << "a, b (c|)";
    QTest::newRow("commas inside parentheses do not count, the clause being the last")
        << "FOREIGN KEY (a, b) REFERENCES p(x, y)|)";
    QTest::newRow("a comma inside the second parentheses ends a clause of one column")
        << "FOREIGN KEY (a) REFERENCES p(x|, y), z";
    QTest::newRow("one comma inside the first parentheses does no harm")
        << "FOREIGN KEY (a, b) REFERENCES p(x)|, FOREIGN KEY (c) REFERENCES q(y)";
    QTest::newRow("commas inside both parentheses cost the end of the clause")
        << "FOREIGN KEY (a, b) REFERENCES p(x, y), FOREIGN KEY (c) REFERENCES q(z|)";
    QTest::newRow("two commas inside the first parentheses cost the clause behind as well")
        << "FOREIGN KEY (a, b, c) REFERENCES p(x), FOREIGN KEY (d) REFERENCES q(y)|, "
           "FOREIGN KEY (e) REFERENCES r(z), f";
    QTest::newRow("without a closing parenthesis the first comma") << "f(a|, b, c(d";
    QTest::newRow("closing parentheses that ran out let a comma inside others count")
        << "f(a, b) g(c|, d";
    QTest::newRow("without an opening parenthesis no comma counts") << "a), b), |c";
    QTest::newRow("opening parentheses that ran out let the comma behind the clause go")
        << "f(a, b), |c";
    QTest::newRow("both that ran out begin anew and find the comma behind the clause")
        << "f(a, b, c)|, d";
    QTest::newRow("both that ran out begin anew and stand inside the clause again")
        << "f(a, b, c, d), |e";
    QTest::newRow("both that ran out begin anew twice") << "f(a, b, c, d, e)|, g";
    QTest::newRow("opening parentheses begin anew while closing ones go on")
        << "f(a, b) c), d)|, e";
    QTest::newRow("opening parentheses side by side count one by one") << "f((a, b), c), |d";
    QTest::newRow("closing parentheses side by side count one by one") << "f(a, (b))|, c)";
    QTest::newRow("commas side by side count one by one") << "a,, b(c)|, d";
}

void ForeignKeyClausesTest::findsClauseEnd()
{
    QFETCH(QString, text);
    const int end = text.indexOf('|');
    text.remove(end, 1);

    QCOMPARE(findClauseEnd(text), end);
}

void ForeignKeyClausesTest::endOfAnEmptyTextLiesBeforeIt()
{
    QCOMPARE(findClauseEnd(QString()), -1);
}

void ForeignKeyClausesTest::extractsForeignKeys_data()
{
    QTest::addColumn<QString>("createText");
    QTest::addColumn<QString>("column");
    QTest::addColumn<QString>("clauses");

    QTest::newRow("no text") << ""
                             << "zz"
                             << "";
    QTest::newRow("no clause") << "CREATE TABLE t (a INT, b INT)"
                               << "zz"
                               << "";
    QTest::newRow("one clause, the last of the table")
        << "CREATE TABLE t (a INT, b INT, FOREIGN KEY (a) REFERENCES p(id))"
        << "b"
        << "FOREIGN KEY (a) REFERENCES p(id),";
    QTest::newRow("one clause, another constraint behind it")
        << "CREATE TABLE t (a INT, b INT, FOREIGN KEY (a) REFERENCES p(id), UNIQUE (a))"
        << "b"
        << "FOREIGN KEY (a) REFERENCES p(id),";
    QTest::newRow("several clauses in their order")
        << "CREATE TABLE t (a INT, b INT, FOREIGN KEY (b) REFERENCES q(id) ON DELETE CASCADE , "
           "FOREIGN KEY (a) REFERENCES p(id),FOREIGN KEY(a)REFERENCES r(id))"
        << "zz"
        << "FOREIGN KEY (b) REFERENCES q(id) ON DELETE CASCADE ,"
           "FOREIGN KEY (a) REFERENCES p(id),FOREIGN KEY(a)REFERENCES r(id),";
    QTest::newRow("the column's own clause goes, the first one")
        << "CREATE TABLE t (w1 INT, w2 INT, FOREIGN KEY (w1) REFERENCES p(id), "
           "FOREIGN KEY (w2) REFERENCES p(id))"
        << "w1"
        << "FOREIGN KEY (w2) REFERENCES p(id),";
    QTest::newRow("the column's own clause goes, the last one")
        << "CREATE TABLE t (w1 INT, w2 INT, FOREIGN KEY (w1) REFERENCES p(id), "
           "FOREIGN KEY (w2) REFERENCES p(id))"
        << "w2"
        << "FOREIGN KEY (w1) REFERENCES p(id),";
    QTest::newRow("every clause goes")
        << "CREATE TABLE t (w INT, FOREIGN KEY (w) REFERENCES p(id), FOREIGN KEY (w) REFERENCES q(id))"
        << "w"
        << "";
    QTest::newRow("a clause goes whose column's name holds the name")
        << "CREATE TABLE t (id INT, fieldId INT, FOREIGN KEY (fieldId) REFERENCES p(x))"
        << "id"
        << "";
    QTest::newRow("a clause goes whose table's name holds the name")
        << "CREATE TABLE t (id INT, a INT, FOREIGN KEY (a) REFERENCES grid(x))"
        << "id"
        << "";
    QTest::newRow("a clause goes whose column referred to holds the name")
        << "CREATE TABLE t (id INT, a INT, FOREIGN KEY (a) REFERENCES p(uuid))"
        << "ID"
        << "";
    QTest::newRow("a clause goes whose action holds the name")
        << "CREATE TABLE t (case_ INT, a INT, FOREIGN KEY (a) REFERENCES p(x) ON DELETE CASCADE)"
        << "cascade"
        << "";
    QTest::newRow("a clause goes whose keywords hold the name")
        << "CREATE TABLE t (key INT, a INT, FOREIGN KEY (a) REFERENCES p(x))"
        << "key"
        << "";
    QTest::newRow("every clause holds an empty name")
        << "CREATE TABLE t (a INT, FOREIGN KEY (a) REFERENCES p(x))"
        << ""
        << "";
    QTest::newRow("the name elsewhere in the table does not count")
        << "CREATE TABLE zz (zz INT, a INT, FOREIGN KEY (a) REFERENCES p(x), CHECK (zz > 0))"
        << "zz"
        << "FOREIGN KEY (a) REFERENCES p(x),";
    QTest::newRow("clauses of only small letters are not found")
        << "CREATE TABLE t (a INT, foreign key (a) references p(x), Foreign Key (a) REFERENCES q(x))"
        << "zz"
        << "";
    QTest::newRow("of clauses in small letters those behind one in capitals are found")
        << "CREATE TABLE t (a INT, foreign key (a) REFERENCES p(x), FOREIGN KEY (a) REFERENCES q(x), "
           "foreign key (a) references r(x), Foreign Key (a) REFERENCES s(x))"
        << "zz"
        << "FOREIGN KEY (a) REFERENCES q(x),foreign key (a) references r(x),"
           "Foreign Key (a) REFERENCES s(x),";
    QTest::newRow("a clause of two columns, the last of the table")
        << "CREATE TABLE t (a INT, b INT, FOREIGN KEY (a, b) REFERENCES p(x, y))"
        << "zz"
        << "FOREIGN KEY (a, b) REFERENCES p(x, y),";
    QTest::newRow("a clause of two columns takes the rest of the table with it")
        << "CREATE TABLE t (a INT, b INT, FOREIGN KEY (a, b) REFERENCES p(x, y), "
           "FOREIGN KEY (b) REFERENCES q(z))"
        << "w"
        << "FOREIGN KEY (a, b) REFERENCES p(x, y), FOREIGN KEY (b) REFERENCES q(z),";
    QTest::newRow("a clause that took another with it goes with it")
        << "CREATE TABLE t (a INT, w INT, FOREIGN KEY (a, b) REFERENCES p(x, y), "
           "FOREIGN KEY (w) REFERENCES q(z))"
        << "w"
        << "";
    QTest::newRow("a clause of two columns behind others")
        << "CREATE TABLE t (a INT, b INT, FOREIGN KEY (b) REFERENCES q(z), "
           "FOREIGN KEY (a, b) REFERENCES p(x, y))"
        << "w"
        << "FOREIGN KEY (b) REFERENCES q(z),FOREIGN KEY (a, b) REFERENCES p(x, y),";
    QTest::newRow("a clause of one column that refers to two is cut")
        << "CREATE TABLE t (a INT, FOREIGN KEY (a) REFERENCES p(x, y))"
        << "w"
        << "FOREIGN KEY (a) REFERENCES p(x,";
    QTest::newRow("what stands behind the last clause stays on it but for one character")
        << "CREATE TABLE t (a INT PRIMARY KEY, FOREIGN KEY (a) REFERENCES p(x)\n) WITHOUT ROWID"
        << "zz"
        << "FOREIGN KEY (a) REFERENCES p(x)\n) WITHOUT ROWI,";
    QTest::newRow("the keyword inside a text counts as a clause")
        << "CREATE TABLE t (a TEXT DEFAULT 'FOREIGN KEY', b INT)"
        << "zz"
        << "FOREIGN KEY', b INT,";
    QTest::newRow("the keyword with other white space is not found")
        << "CREATE TABLE t (a INT, FOREIGN  KEY (a) REFERENCES p(x), FOREIGN\nKEY (a) REFERENCES q(x))"
        << "zz"
        << "";
}

void ForeignKeyClausesTest::extractsForeignKeys()
{
    QFETCH(QString, createText);
    QFETCH(QString, column);

    QTEST(extractForeignKeys(createText, column), "clauses");
}

QTEST_APPLESS_MAIN(ForeignKeyClausesTest)
#include "foreign_key_clauses_test.moc"
