-- How the extension is declared.

SELECT extname, extversion, extrelocatable FROM pg_extension WHERE extname = 'halvex_encryption';
SELECT superuser, trusted, relocatable, schema, requires, comment
  FROM pg_available_extension_versions WHERE name = 'halvex_encryption' AND version = '1.0';

SELECT p.oid::regprocedure AS function, prorettype::regtype AS result, provolatile AS volatility,
       proparallel AS parallel, proisstrict AS strict, procost AS cost,
       has_function_privilege('public', p.oid, 'EXECUTE') AS public
  FROM pg_proc AS p
  JOIN pg_depend AS d ON d.classid = 'pg_proc'::regclass AND d.objid = p.oid AND d.deptype = 'e'
  JOIN pg_extension AS e ON e.oid = d.refobjid AND e.extname = 'halvex_encryption'
  ORDER BY p.oid::regprocedure::text;

-- It can be moved, dropped and made again.
CREATE SCHEMA crypto;
ALTER EXTENSION halvex_encryption SET SCHEMA crypto;
SELECT crypto.create_digest('SHA256', 'abc');
DROP EXTENSION halvex_encryption;
SELECT crypto.create_digest('SHA256', 'abc');
CREATE EXTENSION halvex_encryption SCHEMA crypto;
SELECT crypto.create_digest('SHA256', 'abc');

-- Not for everybody to install.
DROP EXTENSION halvex_encryption;
CREATE ROLE somebody;
GRANT CREATE ON DATABASE halvex TO somebody;
GRANT CREATE ON SCHEMA public TO somebody;
SET ROLE somebody;
CREATE EXTENSION halvex_encryption;
