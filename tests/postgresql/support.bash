# What the scripts here share: servers (see clusters.bash) and a few ways to check what they answer.
#
# Every test starts with:  source support.bash BUILD_FOLDER
# and fails at the first check that does not hold, with the logs of its servers.

set -euo pipefail

source_folder=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/../.." && pwd -P)
build=$1
fixtures=$source_folder/tests/fixtures

# shellcheck source=hosts/postgresql/clusters/clusters.bash
source "$source_folder/hosts/postgresql/clusters/clusters.bash"

fail() {
  local log
  for log in "$clusters_folder"/*/server.log; do
    [[ -f $log ]] || continue
    printf '%s\n' "--- $log" >&2
    tail -n 40 -- "$log" >&2
  done
  printf 'FAILED: %s\n' "$1" >&2
  exit 1
}

# check_equal WHAT EXPECTED ACTUAL
check_equal() {
  [[ $3 == "$2" ]] || fail "$1: expected '$2', got '$3'"
}

# check_contains WHAT PART TEXT
check_contains() {
  [[ $3 == *"$2"* ]] || fail "$1: expected '$2' in '$3'"
}

# check_lacks WHAT PART TEXT
check_lacks() {
  [[ $3 != *"$2"* ]] || fail "$1: did not expect '$2' in '$3'"
}

# query CLUSTER SQL [psql option]...: the result without decoration.
query() {
  local cluster=$1 sql=$2
  shift 2
  psql_on "$cluster" -q -t -A "$@" <<<"$sql"
}

# open_session CLUSTER [psql option]...: one session, which `ask` then speaks to. Its errors are answers too.
open_session() {
  coproc session { psql_on "$@" -q -t -A 2>&1; }
  session_pid=$!  # bash unsets session_PID as soon as the session has ended
}

# ask SQL: sends a statement to the session and sets `answer` to the first line that comes back.
ask() {
  printf '%s\n' "$1" >&"${session[1]}"
  # shellcheck disable=SC2034  # the caller reads it
  read -r answer <&"${session[0]}"
}

close_session() {
  printf '%s\n' '\q' >&"${session[1]}"
  wait "$session_pid"
}

milliseconds() { printf '%s' $(($(date +%s%N) / 1000000)); }

check_no_crash() {
  check_equal 'crashes' 0 "$(cat "$clusters_folder"/*/server.log | grep -c 'terminated by signal' || true)"
}

# wait_until WHAT COMMAND...: for up to 60 seconds.
wait_until() {
  local what=$1 deadline=$((SECONDS + 60))
  shift
  until "$@"; do
    ((SECONDS < deadline)) || fail "$what did not happen within 60 seconds"
    sleep 0.05
  done
}

# shows CLUSTER SETTING VALUE: whether a new session sees the setting at that value.
shows() { [[ $(query "$1" "SHOW $2") == "$3" ]]; }

# The test keys for queries, as :'private_key' and :'public_key'.
# shellcheck disable=SC2034
key_variables=(-v "private_key=$(<"$fixtures/rsa2048.pem")" -v "public_key=$(<"$fixtures/rsa2048-public.pem")")

# Puts the recording component where servers can read it, and has the ones that start from now on use
# it. instances_noted counts the lines of a kind ("init", "deinit") that it has written.
use_probe() {
  probe_file=$clusters_folder/instances
  cp -- "$build/tests/postgresql/probe_component.so" "$clusters_folder/"
  local real
  real=$(find "$clusters_folder/server" -name component_halvex_encryption.so)
  : >"$probe_file"
  chmod 0666 "$probe_file"
  server_environment+=("HALVEX_COMPONENT=$clusters_folder/probe_component.so"
    "HALVEX_PROBED_COMPONENT=$real" "HALVEX_PROBE_FILE=$probe_file")
}

forget_instances() { : >"$probe_file"; }

instances_noted() { grep -c "^$1 " "$probe_file" || true; }

instances_match() { [[ $(instances_noted init) == "$(instances_noted deinit)" ]]; }
