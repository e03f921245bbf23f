INSERT OR IGNORE INTO PC_Ingredient (id, displayName, category) VALUES (101, 'Kieserit', 2);
INSERT OR IGNORE INTO PC_Ingredient (id, displayName, category) VALUES (102, 'Lime; fine', 2);
INSERT INTO PC_Ingredient (id, displayName, category) VALUES (1, 'Glyphosate 360', 4);
INSERT OR IGNORE INTO PC_Carrier (id, displayName) VALUES (101, 'Gülle');
