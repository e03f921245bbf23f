"""What damaged texts are made of."""

from support.versions import NEWEST


def encoded(*words):
    return [word if isinstance(word, bytes) else word.encode() for word in words]


BAD_UTF_8 = (b"\xff", b"\x80", b"\xed\xa0\x80", b"\xff\xfe", b"\xfe\xff", b"\xf0\x9f")
CHARACTERS = (
    "\0", "\n", "\r", "\r\n", "'", '"', " ", "\ufeff", "\ufffe", "\uffff", "🚜", "%1", "%2")

SQL = encoded(
    *CHARACTERS, "''", "`", "[", "]", "(", ")", ",", ";", "--", "/*", "*/", "%99", ":uuid", "?",
    "FOREIGN KEY", "foreign key", "FOREIGN KEY (a, b) REFERENCES growers(id, b), ",
    " REFERENCES growers(id) ON DELETE CASCADE", " PRIMARY KEY", "PRIMARY KEY (id)", " UNIQUE",
    " NOT NULL", " DEFAULT (1)", " DEFAULT 'a''b'", " DEFAULT NULL", " CHECK (0)",
    " COLLATE NOCASE", " COLLATE nowhere", " AUTOINCREMENT", " WITHOUT ROWID", " STRICT",
    " GENERATED ALWAYS AS (1)", "CREATE TABLE ", "CREATE TEMP TABLE ", "CREATE VIEW ",
    "CREATE INDEX ", "CREATE VIRTUAL TABLE ", " USING fts3(a)", " AS SELECT 1", "TABLE", "INTEGER",
    "TEXT", "BLOB", "REAL", "VARCHAR(40)", "id", "displayName", "tableVersion", "sqlite_master",
    "_temp", "_old", "-9223372036854775808", "9223372036854775807", "1e999", "x'00'", "NULL")

SCRIPT = SQL + encoded(
    "BEGIN;", "BEGIN EXCLUSIVE;", "COMMIT;", "ROLLBACK;", "SAVEPOINT a;", "VACUUM;", "REINDEX;",
    "ANALYZE;", "PRAGMA writable_schema = ON;", "PRAGMA foreign_keys = OFF;",
    "PRAGMA journal_mode = WAL;", "PRAGMA journal_mode = OFF;", "PRAGMA locking_mode = EXCLUSIVE;",
    "PRAGMA query_only = ON;", "PRAGMA max_page_count = 1;", "PRAGMA encoding = 'UTF-16';",
    "PRAGMA cell_size_check = ON;", "PRAGMA page_size = 512;", "PRAGMA recursive_triggers = ON;",
    "PRAGMA case_sensitive_like = ON;", "ATTACH '/app/other.sqlite' AS other;",
    "ATTACH ':memory:' AS main;", "DETACH main;", "DELETE FROM sqlite_master;",
    "UPDATE sqlite_master SET sql = 'CREATE TABLE t (a';", "DROP TABLE growers;",
    "DROP TABLE files;", "CREATE TABLE growers (id);", "DELETE FROM tableVersion;",
    "ALTER TABLE growers RENAME TO farms;", "ALTER TABLE farms DROP COLUMN growerId;",
    "CREATE TEMP TABLE growers (id, displayName);", "CREATE TEMP VIEW files AS SELECT 1;",
    "INSERT INTO growers (displayName) SELECT displayName FROM growers;",
    "UPDATE growers SET displayName = 'a';", "UPDATE files SET displayName = 'a';",
    "UPDATE growers SET displayName = 'it''s';", "SELECT load_extension('libm.so.6');",
    "SELECT * FROM growers, farms, fields;", "EXPLAIN SELECT 1;", "END;", ";;;;;;;;",
    "CREATE TRIGGER t AFTER UPDATE ON growers BEGIN DELETE FROM growers WHERE id = new.id")

XML = encoded(
    *CHARACTERS, *BAD_UTF_8, "<", ">", "/>", "&", "&amp;", "&#0;", "&#1114111;", "&#x110000;",
    "&a;", "&series;", "%a;", "]]>", "<![CDATA[", "<!--", "-->", "<?a ", "?>",
    "<?xml version='1.0' encoding='UTF-16'?>", "<?xml version='1.1'?>",
    "<?xml version='1.0' encoding='UTF-7'?>", "<?xml version='1.0' encoding='IBM037'?>",
    "<!DOCTYPE LVData [", "<!ENTITY a '&a;'>", "<!ENTITY b '&a;&a;'>",
    "<!ENTITY a SYSTEM '/etc/harlo/platform'>", "<!ENTITY % a '<b>'>", "<!ELEMENT a (b|c)*>",
    "<!ATTLIST a b (c|d) #IMPLIED>", "<!NOTATION n PUBLIC 'n'>", "<LVData>", "</LVData>",
    "<lvdata>", "<PartNumber>", "</PartNumber>", "<PARTNUMBERSUFFIX>9</PARTNUMBERSUFFIX>",
    "<fieldComputerId>0 OR 1</fieldComputerId>", "<fieldComputerId>1;--</fieldComputerId>",
    "<a:b xmlns:a='c'>", "<a b='1' b='2'>", "xmlns=''", b"\x00\x00\xfe\xff")

TEXT = encoded(*CHARACTERS, *BAD_UTF_8, "TORVIKMAX", "TORVIK", "1.2.3", "\\", "a" * 5000)

ARGUMENTS = encoded(
    "", " ", "0", "-1", "1", f"{NEWEST}", f"{NEWEST + 1}", f"+{NEWEST}", f" {NEWEST}",
    f"{NEWEST} ", f"{NEWEST:#x}", f"0{NEWEST}", "3e1", f"{NEWEST}.0",
    "2147483647", "-2147483648", "2147483648", "-2147483649", "9" * 400, "abc", "--help",
    "-version", "-h", "--", "-", "-platform", "-qmljsdebugger=port:1", "-style", "'",
    f"{NEWEST}'; DROP TABLE growers", "%1", "٣٤", f"{NEWEST}\n",
    b"\xff", b"\xed\xa0\x80", b"3" * 100_000)

NUMBERS = (0, 1, 2, 7, 127, 128, 255, 256, 32767, 65535, 65536, 2 ** 31 - 1, 2 ** 31, 2 ** 32 - 1)

VALUES = (
    *CHARACTERS, None, "", "''", "a'b", "%1%2%3", "a\0b", "ttyS9", "ttyUSB", f"{NEWEST}", "abc",
    "-1", "1e999", "x" * 70_000, "Miller", "miller ", "/", "../../x", 0, -1, 1, 2, NEWEST,
    NEWEST + 1, 2 ** 31 - 1, 2 ** 31, 2 ** 63 - 1, -2 ** 63, 1e308, -1e-308, float("inf"), 1.5,
    b"", b"\0", b"\xff\xfe", bytes(70_000))

COLUMNS = (
    "extra TEXT DEFAULT 'it''s FOREIGN KEY (a, b)'", '"a b" TEXT', "[x,y] INT", "'q' TEXT", "a.b",
    "`FOREIGN KEY` INT CHECK (1)", "extra", "extra TEXT /* , ( */", "extra INT DEFAULT (1 + (2))",
    "extra TEXT REFERENCES growers(id)", "extra AS (1)", 'extra TEXT NOT NULL DEFAULT "x,y"')

CONSTRAINTS = (
    "FOREIGN KEY (id) REFERENCES growers(id, b)", "FOREIGN KEY(id)REFERENCES nowhere",
    "FOREIGN KEY (id, displayName) REFERENCES growers(id, displayName)", "CHECK (1)",
    "CHECK (length('FOREIGN KEY, (') > 1)", "UNIQUE (id)", 'CONSTRAINT "FOREIGN KEY (" UNIQUE (id)',
    "foreign key (id) references farms(id)", "FOREIGN KEY (id) REFERENCES farms /* ), */ (id)")

PRAGMAS = (
    "page_size = 512", "page_size = 1024", "page_size = 65536", "encoding = 'UTF-16le'",
    "encoding = 'UTF-16be'", "auto_vacuum = FULL", "auto_vacuum = INCREMENTAL",
    "legacy_file_format = ON", "secure_delete = ON", "user_version = -1")
