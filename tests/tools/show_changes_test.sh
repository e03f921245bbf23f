#!/bin/bash
# Shows the changes between two small databases and compares the whole output.
set -euo pipefail

root=$(dirname "$(realpath "${BASH_SOURCE[0]}")")/../..
scratch=$(mktemp -d "${TMPDIR:-/tmp}/changes.XXXXXX")
trap 'rm -rf "$scratch"' EXIT

# The path contains a single quote, which must not matter.
mkdir "$scratch/it's"
before="$scratch/it's/before" after="$scratch/it's/after"

sqlite3 -bail "$before" <<'END'
CREATE TABLE tableVersion (tableName TEXT PRIMARY KEY, version INTEGER, MirelVersion TEXT);
INSERT INTO tableVersion VALUES('mainSqlDb', 1, NULL), ('altSqlDb', 1, NULL);
CREATE TABLE same (id INTEGER PRIMARY KEY, name TEXT);
INSERT INTO same VALUES(1, 'a'), (2, NULL), (3, 'c');
CREATE TABLE old (id INTEGER PRIMARY KEY, note TEXT);
INSERT INTO old VALUES(1, 'gone');
CREATE TABLE edited (id INTEGER PRIMARY KEY, "a ""name""" TEXT, kind INTEGER, parent INTEGER);
CREATE INDEX byKind ON edited (kind);
INSERT INTO edited VALUES(1, 'x', 1, NULL), (2, 'y', 1, NULL), (3, 'z', 1, NULL);
CREATE VIEW shown AS SELECT id FROM same;
END
sqlite3 -bail "$after" <<'END'
CREATE TABLE tableVersion (tableName TEXT PRIMARY KEY, version INTEGER, MirelVersion TEXT);
INSERT INTO tableVersion VALUES('mainSqlDb', 3, '4.2.0'), ('altSqlDb', 1, NULL);
CREATE TABLE Same (id INTEGER PRIMARY KEY, Name TEXT);
INSERT INTO Same VALUES(1, 'a'), (2, 'b'), (3, 'c');
CREATE TABLE new (id INTEGER PRIMARY KEY, text TEXT);
CREATE TABLE edited (id INTEGER, "a ""name""" TEXT NOT NULL DEFAULT '', parent INTEGER, size REAL,
    PRIMARY KEY (id, size), FOREIGN KEY (parent) REFERENCES same(id) ON DELETE CASCADE);
INSERT INTO edited VALUES(1, 'x', NULL, 0.5), (2, 'other', NULL, 0.5);
CREATE VIEW shown AS SELECT name FROM same;
END

diff - <("$root/tools/show_changes.py" "$before" "$after") <<'END'

Recorded versions

  row        version before  version after  software version after
  ---------  --------------  -------------  ----------------------
  mainSqlDb  1               3              4.2.0
  altSqlDb   1               1

Tables and columns: new (+), gone (-), changed (~)

  table   change
  ------  ------------------------------------------------------------------------------
  edited  + column size REAL
          + PRIMARY KEY (id, size)
          + FOREIGN KEY (parent) REFERENCES same(id) ON DELETE CASCADE
          - column kind
          - PRIMARY KEY (id)
          - index byKind
          ~ column a "name": TEXT -> TEXT NOT NULL DEFAULT ''
  new     + new table: id, text
  old     - table is gone
  shown   ~ CREATE VIEW shown AS SELECT id FROM same -> CREATE VIEW shown AS SELECT name
          FROM same

Rows of the tables that changed, and of all

  table         rows before  rows after  with new values
  ------------  -----------  ----------  ---------------
  edited        3            2           1
  new           -            0           -
  old           1            -           -
  Same          3            3           1
  tableVersion  2            2           1
  all tables    9            7           3
END
