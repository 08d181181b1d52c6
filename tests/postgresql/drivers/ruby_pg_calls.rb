# Calls through ruby-pg, one line per case: what create_digest made of the six bytes, and how a record arrives.
require 'pg'

DATA = ['0001fe5c7827'].pack('H*')
DIGITS = '\x' + DATA.unpack1('H*')
CONNECTION = PG.connect

def report(label, parameter, value)
  statement = "SELECT encode(create_digest('SHA256', #{parameter}), 'hex')"
  puts "#{label}: #{CONNECTION.exec_params(statement, [value]).getvalue(0, 0)}"
rescue PG::Error, ArgumentError => error
  puts "#{label}: #{error.message.lines.first}"
end

report('type bytea, binary', '$1', { value: DATA, type: 17, format: 1 })
report('binary, ::bytea', '$1::bytea', { value: DATA, format: 1 })
report('escape_bytea, ::bytea', '$1::bytea', CONNECTION.escape_bytea(DATA))
report('digits', '$1', DIGITS)
report('no type, binary', '$1', { value: DATA, format: 1 })
report('no type', '$1', DATA)

CONNECTION.exec('SET client_min_messages = log')
CONNECTION.set_notice_receiver do |notice|
  fields = [PG::PG_DIAG_SQLSTATE, PG::PG_DIAG_MESSAGE_PRIMARY, PG::PG_DIAG_MESSAGE_HINT]
  puts "a notice: #{fields.map { |field| notice.error_field(field) }.join(', ')}"
end
CONNECTION.exec("SELECT create_asymmetric_priv_key('DSA', 2048)")
