-- Version 6.1.9.0 of a site with models of its own: one table without E_GMT_Offset, one that has it, one with a column
-- that has no type, one whose text a person wrote, and a model whose table is gone. There are no managed applications.

CREATE TABLE RegisteredModel (RM_ModelName TEXT, RM_Checksum TEXT, RM_Enabled INTEGER, RM_LastAggregationTimestamp INTEGER, RM_LastUploadTimestamp INTEGER);
CREATE TABLE Scheduler (S_Timestamp INTEGER);
CREATE TABLE DatabaseInformation (FieldName TEXT, FieldValue TEXT);
INSERT INTO Scheduler VALUES (1262304000);
INSERT INTO DatabaseInformation VALUES
    ('DatabaseVersionMajor', '6'),
    ('DatabaseVersionMinor', '1'),
    ('DatabaseRevision', '9'),
    ('DatabaseBuildNumber', '0');
INSERT INTO RegisteredModel VALUES
    ('Logon', 'bec7e93239e63517d026dfda6936d340', 1, 0, 0),
    ('Current', '0c', 1, 0, 0),
    ('Typeless', '0d', 1, 0, 0),
    ('Written', '0e', 1, 0, 0),
    ('Gone', '0f', 1, 0, 0);

CREATE TABLE Event_Logon (E_Id INTEGER PRIMARY KEY, E_Date TIMESTAMP, E_DeviceId INTEGER NOT NULL, E_GroupId INTEGER NOT NULL, C_Count INTEGER, C_User TEXT);
CREATE INDEX Ix_Event_Logon_Date ON Event_Logon (E_Date);
CREATE INDEX Ix_Event_Logon_DeviceID ON Event_Logon (E_DeviceID);
CREATE INDEX Ix_Event_Logon_GroupID ON Event_Logon (E_GroupID);
INSERT INTO Event_Logon VALUES
    (1, 1262350800, 11, 1, 3, 'ann'),
    (5, 1262350860, 12, 1, NULL, 'Zoë; -- ''');
CREATE TABLE Event_Current (E_Id INTEGER PRIMARY KEY, E_Date TIMESTAMP, E_GMT_Offset INTEGER, E_DeviceId INTEGER NOT NULL, E_GroupId INTEGER NOT NULL, C_Text TEXT);
CREATE INDEX Ix_Event_Current_Date ON Event_Current (E_Date);
CREATE INDEX Ix_Event_Current_DeviceID ON Event_Current (E_DeviceID);
CREATE INDEX Ix_Event_Current_GroupID ON Event_Current (E_GroupID);
INSERT INTO Event_Current VALUES
    (1, 1262350800, -18000, 11, 1, 'here');
CREATE TABLE Event_Typeless (E_Id INTEGER PRIMARY KEY, E_Date TIMESTAMP, E_DeviceId INTEGER NOT NULL, E_GroupId INTEGER NOT NULL, C_Any );
CREATE INDEX Ix_Event_Typeless_Date ON Event_Typeless (E_Date);
CREATE INDEX Ix_Event_Typeless_DeviceID ON Event_Typeless (E_DeviceID);
CREATE INDEX Ix_Event_Typeless_GroupID ON Event_Typeless (E_GroupID);
INSERT INTO Event_Typeless VALUES
    (1, 1262350800, 11, 1, 2.5),
    (2, 1262350860, 11, 1, 'text'),
    (3, 1262350920, 11, 1, x'00ff');
create table "Event_Written"
(
    E_Id INTEGER PRIMARY KEY,
    E_Date TIMESTAMP,
    E_DeviceId INTEGER NOT NULL,
    E_GroupId INTEGER NOT NULL,
    C_Last
);
INSERT INTO Event_Written VALUES (1, 1262350800, 11, 1, 'last');
