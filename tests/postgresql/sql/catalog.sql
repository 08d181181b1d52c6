-- How the extension is declared.

SELECT extname, extversion, extrelocatable FROM pg_extension WHERE extname = 'halvex_encryption';
SELECT superuser, trusted, relocatable, schema, requires, comment
  FROM pg_available_extension_versions WHERE name = 'halvex_encryption' ORDER BY version;

SELECT p.oid::regprocedure AS function, prorettype::regtype AS result, provolatile AS volatility,
       proparallel AS parallel, proisstrict AS strict, procost AS cost,
       has_function_privilege('public', p.oid, 'EXECUTE') AS public
  FROM pg_proc AS p
  JOIN pg_depend AS d ON d.classid = 'pg_proc'::regclass AND d.objid = p.oid AND d.deptype = 'e'
  JOIN pg_extension AS e ON e.oid = d.refobjid AND e.extname = 'halvex_encryption'
  ORDER BY p.oid::regprocedure::text;

SELECT p.oid::regprocedure AS function, obj_description(p.oid, 'pg_proc') AS description
  FROM pg_proc AS p
  JOIN pg_depend AS d ON d.classid = 'pg_proc'::regclass AND d.objid = p.oid AND d.deptype = 'e'
  JOIN pg_extension AS e ON e.oid = d.refobjid AND e.extname = 'halvex_encryption'
  ORDER BY p.oid::regprocedure::text;

\echo -- An older installation becomes the same by an update.
CREATE VIEW declarations AS
  SELECT p.oid::regprocedure::text AS function, pg_get_functiondef(p.oid) AS definition, proacl::text AS acl,
         obj_description(p.oid, 'pg_proc') AS description
  FROM pg_proc AS p
  JOIN pg_depend AS d ON d.classid = 'pg_proc'::regclass AND d.objid = p.oid AND d.deptype = 'e'
  JOIN pg_extension AS e ON e.oid = d.refobjid AND e.extname = 'halvex_encryption';
CREATE TABLE newly_installed AS SELECT * FROM declarations;
DROP EXTENSION halvex_encryption;
CREATE EXTENSION halvex_encryption VERSION '1.0';
SELECT count(*) > 0 AS differs FROM (TABLE newly_installed EXCEPT TABLE declarations) AS difference;
ALTER EXTENSION halvex_encryption UPDATE;
TABLE newly_installed EXCEPT TABLE declarations;
TABLE declarations EXCEPT TABLE newly_installed;
SELECT extversion FROM pg_extension WHERE extname = 'halvex_encryption';

\echo -- It can be moved, dropped and made again.
CREATE SCHEMA crypto;
ALTER EXTENSION halvex_encryption SET SCHEMA crypto;
SELECT crypto.create_digest('SHA256', 'abc');
DROP EXTENSION halvex_encryption;
SELECT crypto.create_digest('SHA256', 'abc');
CREATE EXTENSION halvex_encryption SCHEMA crypto;
SELECT crypto.create_digest('SHA256', 'abc');

\echo -- Not for everybody to install.
DROP EXTENSION halvex_encryption;
CREATE ROLE somebody;
GRANT CREATE ON DATABASE halvex TO somebody;
GRANT CREATE ON SCHEMA public TO somebody;
SET ROLE somebody;
CREATE EXTENSION halvex_encryption;
