# Calls through Pgtcl, one line per case: what create_digest made of the six bytes, and how a record arrives.
package require Pgtcl

set data [binary format H* 0001fe5c7827]
set digits "\\x0001fe5c7827"
set connection [pg_connect -conninfo ""]

proc report {label parameter value} {
    global connection
    set result [pg_exec $connection "SELECT encode(create_digest('SHA256', $parameter), 'hex')" $value]
    puts "$label: [pg_result $result -getTuple 0]"
    pg_result $result -clear
}
report "digits, ::bytea" {$1::bytea} $digits
report "digits" {$1} $digits
report "bytes" {$1} $data
report "bytes, ::bytea" {$1::bytea} $data

# libpq prints the message to standard error.
pg_result [pg_exec $connection "SET client_min_messages = log"] -clear
pg_result [pg_exec $connection "SELECT create_asymmetric_priv_key('DSA', 2048)"] -clear
