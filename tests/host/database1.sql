CREATE TABLE thumbnail (
        thumbnail_id INTEGER PRIMARY KEY,
        task_id INTEGER NOT NULL,
        file_index INTEGER NOT NULL,
        thumbnail_index INTEGER NOT NULL,
        thumbnail_second INTEGER NOT NULL,
        thumbnail_filename TEXT NOT NULL,
        file_path TEXT NOT NULL,
        create_time INTEGER NOT NULL,
        UNIQUE (task_id, file_index, thumbnail_index)
    ) STRICT;
INSERT INTO thumbnail VALUES(1,12,3,4,-7,'-7_4.jpeg',CAST(X'FF5C7820F09F9880' AS TEXT),-8);
INSERT INTO thumbnail VALUES(2,12,-2147483648,4,2147483647,'2147483647_4.jpeg',replace('it''s "so";\n-- and so','\n',char(10)),2147483646);
PRAGMA user_version = 1;
