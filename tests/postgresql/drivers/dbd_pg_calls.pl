# Calls through DBD::Pg, one line per case: what create_digest made of the six bytes, and how a record arrives.
use strict;
use warnings;
use DBI;
use DBD::Pg qw(:pg_types);

my $data   = pack 'H*', '0001fe5c7827';
my $digits = '\\x' . unpack 'H*', $data;
my $digest = q{SELECT encode(create_digest('SHA256', ?), 'hex')};
my $connection = DBI->connect('dbi:Pg:', undef, undef, { PrintError => 0, RaiseError => 0 });

sub report {
    my ($case, $statement, $value, $type) = @_;
    my $handle = $connection->prepare($statement);
    $handle->bind_param(1, $value, $type);
    my $answer = $handle->execute ? $handle->fetchrow_array : (split /\n/, $handle->errstr)[0];
    print "$case: $answer\n";
}

report('PG_BYTEA', $digest, $data, { pg_type => PG_BYTEA });
report('no type',  $digest, $data);
report('no type, digits', $digest, $digits);
(my $cast = $digest) =~ s/\?/?::bytea/;
report('no type, digits, ::bytea', $cast, $digits);
report('no type, bytes, ::bytea', $cast, $data);
my $decrypt = q{SELECT asymmetric_decrypt('RSA', ?, (SELECT private_key FROM keys)) IS NULL};
report('decryption, no type, bytes', $decrypt, "\xfe\x5c");

$SIG{__WARN__} = sub { print "a warning: $_[0]" };
$connection->do('SET client_min_messages = log');
$connection->do(q{SELECT create_asymmetric_priv_key('DSA', 2048)});
