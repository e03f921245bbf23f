"""The built program walks between versions."""


def test_empty_database_walks_and_reports(device):
    device.sql("CREATE TABLE tableVersion (tableName TEXT PRIMARY KEY, version INTEGER, MirelVersion TEXT);"
               "INSERT INTO tableVersion VALUES('mainSqlDb', 2, ''), ('altSqlDb', 1, '');")
    device.run("2")
    assert device.log() == ("\n*****Beginning database migration from version: 2 to version: 2\n")
