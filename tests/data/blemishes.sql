-- Blemishes for the database of version_01.sql: everything that a run repairs, and some things that
-- it cannot. Load it with foreign keys off, as the sqlite3 shell does.

-- The version rows say 2, but the change of version 2 is not there.
UPDATE tableVersion SET version = 2 WHERE tableName = 'mainSqlDb';

-- A farm without its grower: its field and that field's guidance line go with it.
INSERT INTO farms VALUES(50,'Alte Mühle',99,12.5);
INSERT INTO fields VALUES(150,'Mühlenwiese',50,12.5,NULL);
INSERT INTO guidanceLines VALUES(90,150,'A-B 90',0,45.0,512345678,104567890,1384737266922);

-- A guidance line without its field, with a row id beyond 32 bits.
INSERT INTO guidanceLines VALUES(5000000000,999,'A-B 91',0,90.0,512345678,104567890,1384737266922);

-- Rows without their machine configuration.
INSERT INTO JP_JobProfile VALUES(90,'Ernte 2013',NULL,NULL,NULL,99,'2013-08-01T06:30:00',4.5,NULL);
INSERT INTO switchToSectionBridge VALUES(99,1,1);
INSERT INTO switchToSectionBridge VALUES(99,2,2);
INSERT INTO productControl_productSettings VALUES('P-09999','Altes Mittel',100.0,99,1.0,2.0,3.0);

-- A transfer of a file that has been deleted.
INSERT INTO OutgoingFiles VALUES(90,'{00000000-0000-0000-0000-000000000000}','office',3,5);

-- A row that breaks its key, in a table without row ids: it cannot be removed.
CREATE TABLE cropRotation (fieldId INTEGER, year INTEGER, cropCode TEXT, PRIMARY KEY (fieldId, year), FOREIGN KEY (fieldId) REFERENCES fields(id)) WITHOUT ROWID;
INSERT INTO cropRotation VALUES(1,2013,'WHEAT');
INSERT INTO cropRotation VALUES(999,2013,'RAPE');

-- Product configurations that nothing refers to, and rows of one that is not there.
INSERT INTO PC_ProductConfig VALUES(50,'Vergessen',NULL,0);
INSERT INTO PC_ProductConfig VALUES(51,'Ohne Mischung',NULL,0);
INSERT INTO PC_MixToProductConfigBridge VALUES(NULL,51);
INSERT INTO PC_MixToProductConfigBridge VALUES(1,98);
INSERT INTO PC_PlanterVarietyToProductConfigBridge VALUES(1,98);

-- Names that are there already: of growers (letter case is no difference there, and the new name
-- may be taken as well), of a farm, of a field and of a file.
INSERT INTO growers VALUES(18,'Smith','Bob Smith',NULL,NULL);
INSERT INTO growers VALUES(19,'MüLLER LANDWIRTSCHAFT',NULL,NULL,NULL);
INSERT INTO farms VALUES(51,'Home',9,NULL);
INSERT INTO fields VALUES(151,'North 80',22,80.0,NULL);
INSERT INTO files VALUES(250,'{7d0c5a36-53f4-4b6e-9a54-4f3d0e2b6c11}','North 80 Boundary','/data/old/userFiles/boundaries/9/72b.shp',2048,1,'2013-10-01',9,22,72);

-- Names with a quote: nothing can be done about them.
INSERT INTO growers VALUES(20,'O''Brien','Pat O''Brien',NULL,NULL);
INSERT INTO farms VALUES(52,'Cow''s End',20,NULL);
INSERT INTO fields VALUES(152,'Miller''s',52,3.0,NULL);
INSERT INTO files VALUES(251,'{0c2f1ed2-4d0a-4b0f-8f39-1d6f5a7a9e52}','Miller''s Boundary','/data/old/userFiles/boundaries/20/152.shp',1024,1,'2013-10-01',20,52,152);
