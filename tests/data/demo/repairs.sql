-- Two things that a run repairs, for a database of version_01.sql that is in good order besides. Load
-- it with foreign keys off, as the sqlite3 shell does.

-- A guidance line whose field has been deleted: it goes.
INSERT INTO guidanceLines VALUES(90,999,'A-B 90',0,45.0,512345678,104567890,1384737266922);

-- A second farm of the same name and grower: it gets a name of its own.
INSERT INTO farms VALUES(51,'Home',9,NULL);
