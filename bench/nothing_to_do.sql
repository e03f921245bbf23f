PRAGMA foreign_keys = ON
SELECT version FROM tableVersion WHERE tableName = 'mainSqlDb'
PRAGMA foreign_key_list('tableVersion')
PRAGMA table_info('tableVersion')
SELECT sql FROM (SELECT * FROM sqlite_master) WHERE tbl_name = 'tableVersion'
SELECT MirelVersion FROM tableVersion WHERE tableName = 'mainSqlDb'
SELECT version FROM tableVersion WHERE tableName = 'altSqlDb'
