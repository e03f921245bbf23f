#!/bin/bash
# Shows what became of a database, for a person to read: the recorded versions, the tables whose
# structure changed and the tables whose rows did.
#
#   show_changes.sh BEFORE AFTER
set -euo pipefail

before=$1 after=$2

# Runs the statements on stdin with both databases attached.
sql() {
    sqlite3 -batch -bail -readonly :memory: \
        ".mode $1" "ATTACH '${before//\'/\'\'}' AS before" "ATTACH '${after//\'/\'\'}' AS after" \
        ".read /dev/stdin"
}

# A heading, and below it the rows of a query or the words for none.
section() {
    local rows
    rows=$(sql "column --wrap 80 --wordwrap on")
    printf '\n%s\n\n' "$1"
    # Where one row is wrapped the shell sets all of them apart by empty lines.
    sed '/^$/d; s/^/  /; s/ *$//' <<<"${rows:-$2}"
}

section "Recorded versions" "none" <<'END'
SELECT tableName AS "row", old.version AS "version before", new.version AS "version after",
    ifnull(new.MirelVersion, '') AS "software version after"
FROM after.tableVersion AS new LEFT JOIN before.tableVersion AS old USING (tableName);
END

# Every table, and every part of a table with its description, on either side.
structure=$(cat <<'END'
CREATE TEMP VIEW objects AS
    SELECT 'before' AS side, type, name, tbl_name, sql FROM before.sqlite_master
    UNION ALL
    SELECT 'after', type, name, tbl_name, sql FROM after.sqlite_master;
CREATE TEMP VIEW tables AS
    SELECT side, name FROM objects WHERE type = 'table' AND name NOT LIKE 'sqlite~_%' ESCAPE '~';
CREATE TEMP VIEW columns AS
    SELECT side, tables.name AS tableName, info.name, pk, type
        || iif("notnull", ' NOT NULL', '') || ifnull(' DEFAULT ' || dflt_value, '') AS description
    FROM tables, pragma_table_info(tables.name, side) AS info;
CREATE TEMP VIEW parts AS
    SELECT side, tableName, 'column ' || name AS part, description FROM columns
    UNION ALL
    SELECT side, tableName, 'primary key', group_concat(name, ', ')
    FROM (SELECT * FROM columns WHERE pk > 0 ORDER BY side, tableName, pk)
    GROUP BY side, tableName
    UNION ALL
    SELECT side, name, 'foreign key ' || "from", 'to ' || "table" || ifnull('.' || "to", '')
        || ' ON DELETE ' || on_delete || ' ON UPDATE ' || on_update
    FROM tables, pragma_foreign_key_list(name, side)
    UNION ALL
    SELECT side, tbl_name, type || ' ' || name, sql FROM objects
    WHERE type <> 'table' AND sql IS NOT NULL;
END
)

# SQLite compares names without regard to case, and so do the joins.
section "Tables and columns: new (+), gone (-), changed (~)" "no change" <<END
$structure
CREATE TEMP VIEW tableChanges AS
    SELECT ifnull(new.name, old.name) AS tableName, iif(old.name IS NULL, '+ new table: ' ||
        (SELECT group_concat(name, ', ') FROM columns WHERE side = 'after' AND tableName = new.name),
        '- table is gone') AS change
    FROM (SELECT name FROM tables WHERE side = 'before') AS old
    FULL JOIN (SELECT name FROM tables WHERE side = 'after') AS new
    ON new.name = old.name COLLATE NOCASE
    WHERE new.name IS NULL OR old.name IS NULL;
CREATE TEMP VIEW partChanges AS
    SELECT ifnull(new.tableName, old.tableName) AS tableName, CASE
        WHEN old.part IS NULL THEN '+ ' || new.part || ': ' || new.description
        WHEN new.part IS NULL THEN '- ' || old.part
        ELSE '~ ' || new.part || ': ' || old.description || ' -> ' || new.description END AS change
    FROM (SELECT * FROM parts WHERE side = 'before') AS old
    FULL JOIN (SELECT * FROM parts WHERE side = 'after') AS new
    ON new.tableName = old.tableName COLLATE NOCASE AND new.part = old.part COLLATE NOCASE
    WHERE new.description IS NOT old.description;
CREATE TEMP TABLE changes AS
    SELECT * FROM tableChanges
    UNION ALL
    SELECT * FROM partChanges WHERE tableName NOT IN (SELECT tableName FROM tableChanges);
SELECT iif(tableName = lag(tableName) OVER inOrder, '', tableName) AS "table", change FROM changes
WINDOW inOrder AS (ORDER BY tableName COLLATE NOCASE, substr(change, 1, 1), rowid)
ORDER BY tableName COLLATE NOCASE, substr(change, 1, 1), rowid;
END

# Every table's number of rows, and of the rows whose values the same columns did not hold before.
# The statement that counts the rows of every table, and those whose values its columns did not hold
# before.
count_rows=$(sql list <<END
$structure
CREATE TEMP VIEW pairs AS
    SELECT old.name AS old, new.name AS new,
        (SELECT group_concat(format('"%w"', name), ', ') FROM columns
         WHERE side = 'after' AND tableName = new.name AND name COLLATE NOCASE IN
             (SELECT name FROM columns WHERE side = 'before' AND tableName = old.name)) AS kept
    FROM (SELECT name FROM tables WHERE side = 'before') AS old
    FULL JOIN (SELECT name FROM tables WHERE side = 'after') AS new
    ON new.name = old.name COLLATE NOCASE;
SELECT format('INSERT INTO rows SELECT %Q, %s, %s, %s;', ifnull(new, old),
    iif(old IS NULL, 'NULL', format('(SELECT count(*) FROM before."%w")', old)),
    iif(new IS NULL, 'NULL', format('(SELECT count(*) FROM after."%w")', new)),
    iif(kept IS NULL, 'NULL', format(
        '(SELECT count(*) FROM (SELECT %s FROM after."%w" EXCEPT SELECT %s FROM before."%w"))',
        kept, new, kept, old)))
FROM pairs ORDER BY ifnull(new, old) COLLATE NOCASE;
END
)

section "Rows of the tables that changed, and of all" "none" <<END
CREATE TEMP TABLE rows (tableName, before, after, changed);
$count_rows
SELECT tableName AS "table", ifnull(before, '-') AS "rows before", ifnull(after, '-') AS "rows after",
    ifnull(changed, '-') AS "with new values"
FROM rows WHERE before IS NOT after OR changed > 0
UNION ALL
SELECT 'all tables', sum(before), sum(after), sum(changed) FROM rows;
END
