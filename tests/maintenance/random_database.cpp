#include "maintenance/random_database.h"

#include <QRandomGenerator>
#include <QVector>

#include <algorithm>

namespace
{
using Texts = QByteArrayList;

class Dice
{
public:
    explicit Dice(quint32 seed) : m_generator(seed) {}

    int below(int bound) { return m_generator.bounded(bound); }
    bool oneIn(int chances) { return below(chances) == 0; }

    template <typename List> typename List::value_type pick(const List &choices)
    {
        return choices[below(choices.size())];
    }

private:
    QRandomGenerator m_generator;
};

const Texts plainNames = {"'A'",    "'A'",   "'A'",   "'a'",     "'B'",         "'A_2'",
                          "'A_2'",  "'a_2'", "'B_2'", "'A_3'",   "'A_2_2'",     "'A_10'",
                          "''",     "' '",   "'A '",  "'A_2  '", "'_2'",        "'%1'",
                          "'%2'",   "'Ä'",   "'ä'",   "'Ä_2'",   "'Feld 1'",    "'n'",
                          "'A-- '", "'\"'",  "'A\n'", "'日本'",  "'\U0001F33E'"};

const QVector<Texts> oddNames = {
    // Names with single quotes: most statements fail, some names are read as another one.
    {"'O''Brien'", "''''", "''''''", "'A'''", "'A''''A'", "'A''A'"},
    // Names with quotes that leave the statement valid.
    {"'x'' OR ''1''=''1'",
     "'x'' -- '",
     "'x'' OR 1 -- '",
     "'x'' OR id > 2 -- '",
     "'A'' COLLATE NOCASE -- '",
     "'x'', id=id+10 -- '",
     "'x'', id=-id -- '",
     "'x'', growerId=1 -- '",
     "'x'', farmId=2 -- '",
     "'x'', typeId=4 -- '",
     "'A'', notes=NULL -- '",
     "'x'' WHERE id=2 RETURNING id -- '",
     "'x'' UNION SELECT 3 -- '",
     "'A'' OR displayName=''B'",
     "'A'' IS NOT ''B'",
     "'A'' || ''_2'",
     "'x''; DELETE FROM farms; -- '"},
    // Bytes that are not valid UTF-8, and the characters that they are read as.
    {"CAST(x'FF' AS TEXT)",
     "CAST(x'FE' AS TEXT)",
     "CAST(x'EFBFBD' AS TEXT)",
     "CAST(x'41FF' AS TEXT)",
     "CAST(x'41EFBFBD' AS TEXT)",
     "CAST(x'EDA080' AS TEXT)",
     "CAST(x'C181' AS TEXT)",
     "CAST(x'F0908080' AS TEXT)",
     "CAST(x'F7BFBFBF' AS TEXT)",
     "CAST(x'EFBBBF41' AS TEXT)"},
    // Characters that are read as another character from a text, but not from a BLOB.
    {"CAST(x'EFBFBD' AS TEXT)",
     "CAST(x'EFBFBE' AS TEXT)",
     "CAST(x'EFBFBF' AS TEXT)",
     "x'EFBFBE'",
     "x'EFBFBF'"},
    // In a UTF-16 database: halves of surrogate pairs, which hide the next character.
    {"CAST(x'00D8' AS TEXT)",
     "CAST(x'410000D8' AS TEXT)",
     "CAST(x'00D82700' AS TEXT)",
     "CAST(x'00DC41002700' AS TEXT)",
     "CAST(x'FFFE' AS TEXT)"},
    // NUL bytes, where a statement ends.
    {"CAST(x'00' AS TEXT)",
     "CAST(x'410042' AS TEXT)",
     "CAST(x'410041' AS TEXT)",
     "CAST(x'412700' AS TEXT)",
     "CAST(x'41270042' AS TEXT)",
     "CAST(x'410027' AS TEXT)"},
    // Values that are not texts.
    {"NULL", "NULL", "x''", "''", "x'FFFF'"},
    {"x'41'", "x'41'", "x'27'", "x'4100'", "x'412700'", "x'EFBBBF41'"},
    {"1", "1", "1.0", "'1'", "'01'", "x'31'", "x'3031'", "x'2031'", "1.5", "-0.0", "0"}};

const Texts oddReferences = {
    "NULL",
    "NULL",
    "0",
    "77",
    "1.5",
    "2.0",
    "'x'",
    "'2'",
    "x'32'",
    "1e300",
    "-1e300",
    "x''",
    "'1x'",
    "4294967297",
    "9223372036854775807",
    "-9223372036854775807-1",
    "-9223372036854775808.0",
    "9223372036854775807.0"};

const Texts oddIds = {"NULL", "1", "2", "2", "3", "'x'", "'2'", "2.5", "x'32'", "1e300"};

// Ids of a key that is no row id: NULL, and texts that are read as 0, as an integer or as equal.
const Texts textIds = {
    "NULL",
    "NULL",
    "'{a}'",
    "'{b}'",
    "'{c}'",
    "''",
    "'1'",
    "'1x'",
    "' 2'",
    "'3'",
    "'4'",
    "'5'",
    "6",
    "7",
    "2.5",
    "x'33'",
    "x'7B61'",
    "'{1000}'"};

struct Column {
    QByteArray name;
    QByteArray definition;
    bool absent = false;
};

struct Table {
    QByteArray name;
    QVector<Column> columns;
    Texts scope; ///< the columns within which names are unique
    QByteArray collation = {};
    Texts constraints = {};
    QByteArray options = {};
    Texts afterwards = {}; ///< statements that follow the rows
    bool textIds = false;  ///< most ids are texts

    Column &column(const QByteArray &columnName)
    {
        return *std::find_if(columns.begin(), columns.end(), [&](const Column &column) {
            return column.name.toLower() == columnName.toLower();
        });
    }
};

void makeIdOdd(Dice &dice, Table &table, QVector<Table> &)
{
    table.column("id").definition = dice.pick(Texts{
        "INT PRIMARY KEY",
        "INTEGER PRIMARY KEY DESC",
        "INTEGER PRIMARY KEY AUTOINCREMENT",
        "INTEGER",
        "INTEGER UNIQUE",
        "INTEGER NOT NULL",
        "TEXT PRIMARY KEY",
        "BIGINT PRIMARY KEY",
        "REAL",
        "NUMERIC",
        ""});
}

/// Makes the key a text, which is no row id.
void makeIdText(Dice &dice, Table &table, QVector<Table> &)
{
    table.column("id").definition = dice.pick(Texts{
        "INT PRIMARY KEY",
        "TEXT PRIMARY KEY",
        "BLOB PRIMARY KEY",
        "VARCHAR(40) PRIMARY KEY",
        "INTEGER PRIMARY KEY DESC"});
    table.options = dice.pick(Texts{"", "", " WITHOUT ROWID"});
    table.textIds = true;
}

void useOtherKey(Dice &, Table &table, QVector<Table> &)
{
    table.column("id").definition = "INTEGER";
    table.columns << Column{"key", "INTEGER PRIMARY KEY"};
}

void makeNameOdd(Dice &dice, Table &table, QVector<Table> &)
{
    table.column("displayName").definition =
        dice.pick(Texts{
            "", "NUMERIC", "REAL", "INT", "BLOB", "VARCHAR(40)", "CLOB", "CHARINT", "STRING"}) +
        table.collation;
}

void makeReferenceOdd(Dice &dice, Table &table, QVector<Table> &)
{
    if (!table.scope.isEmpty()) {
        table.column(dice.pick(table.scope)).definition = dice.pick(Texts{
            "",
            "TEXT",
            "REAL",
            "NUMERIC",
            "INT",
            "BIGINT",
            "VARCHAR(8)",
            "BLOB",
            "FLOATING POINT"});
    }
}

void addIndex(Dice &dice, Table &table, QVector<Table> &)
{
    Texts parts = {
        "displayName",
        "displayName DESC",
        "displayName COLLATE NOCASE",
        "displayName, notes DESC",
        "displayName, id DESC",
        "id",
        "id DESC, displayName",
        "notes",
        "notes, id",
        "lower(displayName)",
        "-id",
        "displayName) WHERE (id > 2",
        "notes DESC) WHERE (displayName > 'A'"};
    for (const QByteArray &column : table.scope) {
        parts << column << column + " DESC, notes" << column + ", displayName, notes DESC"
              << "displayName, " + column + ", id DESC" << column + ", notes DESC, displayName";
    }
    if (table.scope.size() > 1) {
        parts << "fieldId, farmId, typeId, displayName, notes DESC"
              << "typeId, growerId, notes DESC, fieldId"
              << "displayName, typeId, id DESC";
    }
    table.afterwards << "CREATE INDEX " + table.name + "Index" +
                            QByteArray::number(table.afterwards.size()) + " ON " + table.name +
                            "(" + dice.pick(parts) + ")";
}

void addUniqueness(Dice &dice, Table &table, QVector<Table> &)
{
    const QByteArray columns =
        dice.pick(Texts{"notes", "displayName", "displayName, notes", "id, displayName"});
    table.constraints << "UNIQUE(" + columns + ")" +
                             dice.pick(Texts{
                                 "",
                                 "",
                                 " ON CONFLICT REPLACE",
                                 " ON CONFLICT IGNORE",
                                 " ON CONFLICT FAIL",
                                 " ON CONFLICT ROLLBACK"});
}

void addTrigger(Dice &dice, Table &table, QVector<Table> &)
{
    const QByteArray other = dice.pick(Texts{"growers", "farms", "fields", "files"});
    const QByteArray action = dice.pick(Texts{
        "SELECT RAISE(ABORT, 'refused')",
        "SELECT RAISE(FAIL, 'refused')",
        "SELECT RAISE(IGNORE)",
        "UPDATE " + other + " SET displayName = 'A' WHERE id = OLD.id + 1",
        "UPDATE " + other + " SET displayName = 'A_2', notes = NULL WHERE id > OLD.id",
        "UPDATE farms SET growerId = OLD.id WHERE growerId IS NULL OR growerId > 2",
        "UPDATE fields SET farmId = farmId % 3",
        "DELETE FROM " + other + " WHERE id = OLD.id + 1",
        "INSERT INTO " + other + "(displayName) SELECT 'A' WHERE NEW.displayName LIKE '%2'"});
    table.afterwards << "CREATE TRIGGER " + table.name + "Trigger " +
                            dice.pick(Texts{"BEFORE", "AFTER"}) + " UPDATE ON " + table.name +
                            dice.pick(
                                Texts{"", " WHEN OLD.id % 2", " WHEN NEW.displayName = 'A_2'"}) +
                            " BEGIN " + action + "; END";
}

void addCheck(Dice &dice, Table &table, QVector<Table> &)
{
    table.constraints << dice.pick(Texts{
        "CHECK(length(displayName) < 3)",
        "CHECK(displayName NOT LIKE '%2')",
        "CHECK(displayName <> 'A_2' COLLATE NOCASE)",
        "CHECK(id <> 2 OR displayName IN ('A', 'B', ''))"});
}

void addGeneratedColumn(Dice &dice, Table &table, QVector<Table> &)
{
    const Column generated = {
        "made",
        dice.pick(Texts{"AS (displayName || id) ", "AS (id + 1) "}) +
            dice.pick(Texts{"VIRTUAL", "STORED"})};
    table.columns.insert(dice.below(table.columns.size() + 1), generated);
}

void makeNameGenerated(Dice &, Table &table, QVector<Table> &)
{
    table.column("displayName").definition = "TEXT AS (notes)";
}

void setOption(Dice &dice, Table &table, QVector<Table> &)
{
    table.options = dice.pick(Texts{" WITHOUT ROWID", " WITHOUT ROWID", " STRICT"});
}

void moveColumns(Dice &dice, Table &table, QVector<Table> &)
{
    const int middle = 1 + dice.below(table.columns.size() - 1);
    std::rotate(table.columns.begin(), table.columns.begin() + middle, table.columns.end());
}

void addColumnAnywhere(Dice &dice, Table &table, QVector<Table> &)
{
    table.columns.insert(dice.below(table.columns.size() + 1), {"further", "TEXT DEFAULT 'A'"});
}

void removeColumn(Dice &dice, Table &table, QVector<Table> &)
{
    table.columns[dice.below(table.columns.size())].absent = true;
}

void changeLetterCase(Dice &dice, Table &table, QVector<Table> &)
{
    Column &column = table.column(dice.pick(Texts{"id", "displayName"} + table.scope));
    column.name = dice.oneIn(2) ? column.name.toUpper() : column.name.toLower();
    if (dice.oneIn(2)) {
        table.name = table.name.toUpper();
    }
}

void makeView(Dice &dice, Table &table, QVector<Table> &)
{
    table.afterwards << "ALTER TABLE " + table.name + " RENAME TO stored";
    if (dice.oneIn(2)) {
        table.afterwards << "CREATE VIEW " + table.name + " AS SELECT * FROM stored";
    } else {
        // Its two halves compare names differently.
        table.afterwards << "CREATE TABLE other AS SELECT * FROM stored WHERE false"
                         << "CREATE VIEW " + table.name +
                                " AS SELECT * FROM other UNION ALL SELECT * FROM stored";
    }
}

void removeTable(Dice &, Table &table, QVector<Table> &)
{
    table.afterwards << "DROP TABLE " + table.name;
}

void addForeignKey(Dice &dice, Table &table, QVector<Table> &tables)
{
    const QByteArray actions =
        " ON UPDATE CASCADE ON DELETE " + dice.pick(Texts{"CASCADE", "SET NULL"});
    if (dice.oneIn(2)) {
        tables[0].constraints << "UNIQUE(displayName, notes)";
        table.constraints
            << "FOREIGN KEY(displayName, notes) REFERENCES growers(displayName, notes)" + actions;
    } else {
        table.constraints << "FOREIGN KEY(" + dice.pick(Texts{"displayName"} + table.scope) +
                                 ") REFERENCES " + dice.pick(Texts{"growers", "farms(id)"}) +
                                 actions;
    }
}

void useUnknownCollation(Dice &, Table &table, QVector<Table> &)
{
    table.column("displayName").definition = "TEXT COLLATE unknown";
}

void analyze(Dice &, Table &table, QVector<Table> &)
{
    table.afterwards << "ANALYZE";
}

using Oddity = void (*)(Dice &, Table &table, QVector<Table> &tables);
const QVector<Oddity> oddities = {
    makeIdOdd,
    makeIdOdd,
    makeIdText,
    makeIdText,
    makeIdText,
    useOtherKey,
    makeNameOdd,
    makeNameOdd,
    makeReferenceOdd,
    makeReferenceOdd,
    addIndex,
    addIndex,
    addIndex,
    addIndex,
    addUniqueness,
    addTrigger,
    addTrigger,
    addCheck,
    addGeneratedColumn,
    makeNameGenerated,
    setOption,
    moveColumns,
    addColumnAnywhere,
    removeColumn,
    changeLetterCase,
    makeView,
    removeTable,
    addForeignKey,
    useUnknownCollation,
    analyze};

QVector<Table> ordinaryTables(Dice &dice)
{
    const Column id = {"id", "INTEGER PRIMARY KEY"};
    const Column name = {"displayName", ""};
    const Column notes = {"notes", "TEXT"};
    const Column growerId = {"growerId", "INTEGER"};
    const Column farmId = {"farmId", "INTEGER"};
    QVector<Table> tables = {
        {"growers", {id, name, notes}, {}},
        {"farms", {id, name, growerId, notes}, {"growerId"}},
        {"fields", {id, name, farmId, notes}, {"farmId"}},
        {"files",
         {id,
          {"uuid", "TEXT UNIQUE"},
          name,
          {"absolutePath", "TEXT"},
          {"fileSize", "INTEGER"},
          {"typeId", "INTEGER"},
          notes,
          growerId,
          farmId,
          {"fieldId", "INTEGER"}},
         {"typeId", "growerId", "farmId", "fieldId"}}};
    for (Table &table : tables) {
        table.collation =
            dice.pick(Texts{"", "", "", " COLLATE NOCASE", " COLLATE NOCASE", " COLLATE RTRIM"});
        table.column("displayName").definition =
            dice.pick(Texts{"TEXT", "TEXT", "varchar(40)"}) + table.collation;
    }
    return tables;
}

Texts someNames(Dice &dice)
{
    Texts names;
    for (int count = 1 + dice.below(6); count > 0; --count) {
        names << dice.pick(plainNames);
    }
    for (int kinds = dice.below(3); kinds > 0; --kinds) {
        const Texts odd = dice.pick(oddNames);
        for (int count = 1 + dice.below(4); count > 0; --count) {
            names << dice.pick(odd);
        }
    }
    return names;
}

/// Ids with gaps, mostly in ascending order.
Texts someIds(Dice &dice, int count)
{
    const Texts starts = {
        "1", "1", "1", "1", "-3", "4294967290", "9223372036854775700", "~9223372036854775807"};
    const QByteArray start = dice.pick(starts) + "+";
    Texts ids;
    for (int id = 0; ids.size() < count; id += dice.oneIn(3) ? 2 : 1) {
        ids << start + QByteArray::number(id);
    }
    for (int i = dice.oneIn(3) ? count - 1 : 0; i > 0; --i) {
        ids.swapItemsAt(i, dice.below(i + 1));
    }
    return ids;
}

/// The values that the rows of a database are made of.
struct Values {
    Texts names;
    Texts growerIds;
    Texts farmIds;
    Texts fieldIds;
    Texts fileIds;
    bool idsOdd;
    bool referencesOdd;

    QByteArray reference(Dice &dice, const Texts &ids) const
    {
        if (referencesOdd && dice.oneIn(4)) {
            return dice.pick(oddReferences);
        }
        return ids.isEmpty() || dice.oneIn(12) ? "77" : dice.pick(ids.mid(0, 1 + dice.below(3)));
    }

    QByteArray value(Dice &dice, const QByteArray &column) const
    {
        const QByteArray name = column.toLower();
        if (name == "key") {
            return "NULL";
        }
        if (name == "displayname") {
            return dice.pick(names);
        }
        if (name == "typeid") {
            return reference(dice, {dice.pick(Texts{"3", "3", "3", "1", "11", "0", "12"})});
        }
        if (name == "growerid") {
            return reference(dice, growerIds);
        }
        if (name == "farmid") {
            return reference(dice, farmIds);
        }
        if (name == "fieldid") {
            return reference(dice, fieldIds);
        }
        return dice.pick(Texts{"NULL", "'A'", "'n" + QByteArray::number(dice.below(1000)) + "'"});
    }
};

Texts insertions(Dice &dice, const Table &table, const Values &values, const Texts &ids)
{
    Texts insertions;
    for (const QByteArray &id : ids) {
        Texts columns;
        Texts row;
        for (const Column &column : table.columns) {
            if (column.absent || column.definition.contains("AS (")) {
                continue;
            }
            columns << column.name;
            if (column.name.toLower() != "id") {
                row << values.value(dice, column.name);
            } else if (table.textIds && !dice.oneIn(4)) {
                row << dice.pick(textIds);
            } else {
                row << (values.idsOdd && dice.oneIn(4) ? dice.pick(oddIds) : id);
            }
        }
        insertions << "INSERT INTO " + table.name + "(" + columns.join(", ") + ") VALUES(" +
                          row.join(", ") + ")";
    }
    return insertions;
}
} // namespace

QByteArrayList randomDatabase(quint32 seed)
{
    Dice dice(seed);
    QVector<Table> tables = ordinaryTables(dice);
    if (dice.oneIn(2)) {
        for (int count = 1 + dice.below(2); count > 0; --count) {
            dice.pick(oddities)(dice, tables[dice.below(tables.size())], tables);
        }
    }
    Values values;
    values.names = someNames(dice);
    values.growerIds = someIds(dice, dice.below(6));
    values.farmIds = someIds(dice, dice.below(9));
    values.fieldIds = someIds(dice, dice.below(16));
    values.fileIds = someIds(dice, dice.below(16));
    values.idsOdd = dice.oneIn(8);
    values.referencesOdd = dice.oneIn(4);

    const Texts ids[] = {values.growerIds, values.farmIds, values.fieldIds, values.fileIds};
    Texts statements;
    for (int i = 0; i < tables.size(); ++i) {
        const Table &table = tables[i];
        Texts definitions;
        for (const Column &column : table.columns) {
            if (!column.absent) {
                definitions << column.name + " " + column.definition;
            }
        }
        definitions += table.constraints;
        statements << "CREATE TABLE " + table.name + "(" + definitions.join(", ") + ")" +
                          table.options;
        statements += insertions(dice, table, values, ids[i]);
    }
    for (const Table &table : tables) {
        statements += table.afterwards;
    }
    return statements;
}
