<?php
// Calls through PHP's two interfaces, one line per case: what create_digest made of the six bytes, and how a record arrives.

$data = hex2bin('0001fe5c7827');
$digits = '\\x' . bin2hex($data);
$digest = "encode(create_digest('SHA256', %s), 'hex')";

$connection = pg_connect('');
function report_query_params($case, $expression, $value) {
    global $connection;
    $result = @pg_query_params($connection, "SELECT $expression", [$value]);
    $answer = $result ? pg_fetch_result($result, 0, 0) : strtok(pg_last_error($connection), "\n");
    echo "pg_query_params, $case: $answer\n";
}
report_query_params('digits', sprintf($digest, '$1'), $digits);
report_query_params('digits, ::bytea', sprintf($digest, '$1::bytea'), $digits);
report_query_params('pg_escape_bytea, ::bytea', sprintf($digest, '$1::bytea'), pg_escape_bytea($connection, $data));

function report_pdo($case, $expression, $value, $emulated) {
    $pdo = new PDO('pgsql:', null, null, [PDO::ATTR_EMULATE_PREPARES => $emulated]);
    $statement = $pdo->prepare("SELECT $expression");
    $statement->bindValue(1, $value, PDO::PARAM_LOB);
    try {
        $statement->execute();
        $answer = $statement->fetchColumn();
    } catch (PDOException $error) {
        $answer = $error->getCode();
    }
    echo "PDO, $case: $answer\n";
}
report_pdo('PARAM_LOB', sprintf($digest, '?'), $data, false);
report_pdo('PARAM_LOB, emulated', sprintf($digest, '?'), $data, true);
report_pdo('PARAM_LOB, ::bytea', sprintf($digest, '?::bytea'), $data, false);
report_pdo('PARAM_LOB, emulated, ::bytea', sprintf($digest, '?::bytea'), $data, true);

pg_query($connection, 'SET client_min_messages = log');
pg_query($connection, "SELECT create_asymmetric_priv_key('DSA', 2048)");
echo 'pg_last_notice: ', pg_last_notice($connection), "\n";
$pdo = new PDO('pgsql:');
$pdo->query('SET client_min_messages = log');
$statement = $pdo->query("SELECT create_asymmetric_priv_key('DSA', 2048)");
echo 'PDO: ', json_encode([$statement->errorInfo(), $pdo->errorInfo()]), "\n";
