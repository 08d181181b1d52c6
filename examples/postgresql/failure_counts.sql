-- A view that counts the NULL results of this server by their cause. Run it as a superuser, where the server has
--
--   logging_collector = on
--   log_destination = 'csvlog'

CREATE EXTENSION file_fdw;
CREATE SERVER log_files FOREIGN DATA WRAPPER file_fdw;
SELECT current_setting('data_directory') || '/' || pg_current_logfile('csvlog') AS csv_file \gset
-- The columns of the server's CSV log, versions 15 to 17. The file is the present one: after a rotation, say
-- ALTER FOREIGN TABLE server_log OPTIONS (SET filename '...').
CREATE FOREIGN TABLE server_log (
  log_time timestamptz, user_name text, database_name text, process_id integer, connection_from text, session_id text,
  session_line_num bigint, command_tag text, session_start_time timestamptz, virtual_transaction_id text,
  transaction_id bigint, error_severity text, sql_state_code text, message text, detail text, hint text,
  internal_query text, internal_query_pos integer, context text, query text, query_pos integer, location text,
  application_name text, backend_type text, leader_pid integer, query_id bigint
) SERVER log_files OPTIONS (filename :'csv_file', format 'csv');
REVOKE ALL ON server_log FROM PUBLIC;

CREATE VIEW failure_counts AS
  SELECT sql_state_code, substring(detail FROM '\((\w+)\)') AS symbol, database_name, user_name, count(*) AS failures
  FROM server_log WHERE sql_state_code ~ '^X39\d\d$'
  GROUP BY 1, 2, 3, 4;
