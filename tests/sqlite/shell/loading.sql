-- The functions come with .load, into this connection alone.
-- exit status: 1

SELECT create_digest('SHA256', 'abc');
SELECT count(*) FROM pragma_function_list WHERE name LIKE 'asymmetric%';
.load halvex_sqlite
SELECT hex(create_digest('SHA256', 'abc'));
SELECT name, narg FROM pragma_function_list
WHERE name LIKE 'asymmetric%' OR name LIKE 'create\_%' ESCAPE '\' ORDER BY name, narg;
SELECT name FROM pragma_module_list WHERE name LIKE 'dovrin%' ORDER BY name;
.open :memory:
SELECT create_digest('SHA256', 'abc');
.load halvex_sqlite
SELECT hex(create_digest('SHA256', 'abc'));
