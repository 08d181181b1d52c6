# Throw-away PostgreSQL servers with the extension, for scripts to source.
#
# Everything stands in one temporary folder that only the caller can enter: a copy of the server
# program whose own library and share folders lead to the installed ones plus this extension (a
# server finds those folders relative to itself, so nothing is written into the system), one data
# folder per server, and one folder per unix socket; no server listens on a network. The folder and
# the servers are gone when the script ends. Started by root, the servers run as the user
# `postgres`, because a server does not run as root.
#
# The caller sets `build` to a CMake build folder, then: open_clusters, start_cluster NAME or
# start_shards N, and psql_on NAME [psql option]... as often as it likes.

# The user's own connection settings are for other servers.
unset "${!PG@}"

server_start_seconds=60
clusters_folder=
declare -A cluster_pids=()
psql_pid=
# NAME=VALUE: added to the environment of servers that are started.
declare -a server_environment=()

cluster_failed() {
  printf '%s: %s\n' "${0##*/}" "$1" >&2
  exit "${2:-1}"
}

# Runs a command as the user that servers run as.
as_server_user() {
  if ((EUID == 0)); then
    setpriv --reuid=postgres --regid=postgres --init-groups -- "$@"
  else
    "$@"
  fi
}

# Makes the temporary folder and the server program in it, and has both removed at the script's end.
open_clusters() {
  local pg_config
  # shellcheck disable=SC2154
  pg_config=$(sed -n 's/^HALVEX_PG_CONFIG:[A-Z]*=//p' "$build/CMakeCache.txt" 2>/dev/null) || true
  [[ -n $pg_config ]] ||
    cluster_failed "'$build' is not a build folder with HALVEX_BUILD_POSTGRESQL_HOST switched on"
  if ((EUID == 0)) && ! id postgres >/dev/null 2>&1; then
    cluster_failed "there is no user 'postgres' to run the server as; install a package postgresql-VERSION"
  fi
  pg_bin=$("$pg_config" --bindir)

  trap close_clusters EXIT
  trap 'exit 129' HUP
  trap 'exit 130' INT
  trap 'exit 143' TERM
  clusters_folder=$(mktemp -d "${TMPDIR:-/tmp}/halvex-postgresql.XXXXXX")
  make_server_program "$("$pg_config" --pkglibdir)" "$("$pg_config" --sharedir)"
  if ((EUID == 0)); then chown postgres: "$clusters_folder"; fi
  make_data_template
}

# make_server_program LIBRARY_FOLDER SHARE_FOLDER
make_server_program() (
  umask 022
  tree=$clusters_folder/server
  mkdir -p "$tree$pg_bin" "$tree$1" "$tree$2/extension"
  cp -- "$pg_bin/postgres" "$tree$pg_bin/"
  link_all_but halvex "$1" "$tree$1"
  link_all_but extension "$2" "$tree$2"
  link_all_but halvex "$2/extension" "$tree$2/extension"
  DESTDIR=$tree cmake -DCMAKE_INSTALL_COMPONENT=postgresql -P "$build/hosts/postgresql/cmake_install.cmake" \
    >"$clusters_folder/install.log" 2>&1 || {
    cat -- "$clusters_folder/install.log" >&2
    cluster_failed "the extension could not be taken from '$build'"
  }
)

# link_all_but WORD FROM TO: links every entry of a folder whose name does not hold the word, so
# that an installed version of this extension does not get in the way.
link_all_but() {
  find "$2" -mindepth 1 -maxdepth 1 ! -name "*$1*" -exec ln -s -t "$3" -- {} +
}

# Every server's data folder is a copy of this one.
make_data_template() {
  local log=$clusters_folder/initdb.log
  (
    cd "$clusters_folder" || exit
    as_server_user "$pg_bin/initdb" --pgdata="$clusters_folder/template" --username=postgres \
      --auth=trust --encoding=UTF8 --locale=C.UTF-8 --no-sync --no-instructions
  ) >"$log" 2>&1 </dev/null || {
    cat -- "$log" >&2
    cluster_failed 'the data folder could not be made'
  }
}

# Where a server's socket is, and its log.
cluster_socket() { printf '%s/%s' "$clusters_folder" "$1"; }
cluster_log() { printf '%s/%s/server.log' "$clusters_folder" "$1"; }

# make_cluster NAME [SETTING]...: makes a server's folder; settings are lines of postgresql.conf.
make_cluster() {
  local name=$1 folder
  folder=$(cluster_socket "$name")
  shift
  # 107 bytes is what the system takes for a socket's path.
  ((${#folder} + 16 < 107)) || cluster_failed "the folder '$folder' has too long a name for a socket; set TMPDIR"
  as_server_user mkdir -m 0700 "$folder"
  as_server_user cp -r --reflink=auto "$clusters_folder/template" "$folder/data"
  {
    printf "listen_addresses = ''\nunix_socket_directories = '%s'\nunix_socket_permissions = 0700\n" "$folder"
    printf '%s\n' 'fsync = off' 'synchronous_commit = off' 'full_page_writes = off' \
      'shared_buffers = 64MB' 'timezone = UTC' "$@"
  } >>"$folder/data/postgresql.conf"
}

# launch_cluster NAME: starts a server that was made, and waits until it answers.
#
# In a session of its own the server does not see a Ctrl-C typed into psql; should this
# script be killed, the system tells the server to stop.
launch_cluster() {
  local name=$1 folder
  folder=$(cluster_socket "$name")
  local start=(setpriv --pdeathsig INT --)
  if ((EUID == 0)); then
    start=(setpriv --reuid=postgres --regid=postgres --init-groups --pdeathsig INT --)
  fi
  (
    cd "$folder" || exit
    exec setsid "${start[@]}" env "${server_environment[@]}" "$clusters_folder/server$pg_bin/postgres" -D "$folder/data"
  ) >>"$folder/server.log" 2>&1 </dev/null &
  cluster_pids[$name]=$!
  wait_for_cluster "$name"
}

wait_for_cluster() {
  local name=$1 deadline=$((SECONDS + server_start_seconds))
  until "$pg_bin/pg_isready" -q -h "$(cluster_socket "$name")" -U postgres -d postgres; do
    if ! kill -0 "${cluster_pids[$name]}" 2>/dev/null || ((SECONDS > deadline)); then
      cat -- "$(cluster_log "$name")" >&2
      cluster_failed "the server '$name' did not start; its log is above"
    fi
    sleep 0.05
  done
}

# start_cluster NAME [SETTING]...: a running server with a database `halvex` that has the extension.
start_cluster() {
  make_cluster "$@" "shared_preload_libraries = 'halvex_encryption'"
  launch_cluster "$1"
  PGDATABASE=postgres psql_on "$1" -q -c 'CREATE DATABASE halvex'
  psql_on "$1" -q -c 'CREATE EXTENSION halvex_encryption'
}

# start_shards N [SETTING]...: the clusters shard_1 to shard_N and their coordinator.
start_shards() {
  local shards=$1 number here
  here=$(dirname -- "${BASH_SOURCE[0]}")
  shift
  for ((number = 1; number <= shards; ++number)); do
    start_cluster "shard_$number" "$@"
    psql_on "shard_$number" -q -v shard="$number" -f "$here/shard.sql"
  done
  start_cluster coordinator "$@"
  psql_on coordinator -q -v shards="$shards" -v folder="$clusters_folder" -f "$here/coordinator.sql"
}

# stop_cluster NAME [SIGNAL]: INT ends sessions and stops, QUIT leaves as a crash would.
stop_cluster() {
  local pid=${cluster_pids[$1]-}
  [[ -n $pid ]] || return 0
  kill -s "${2:-INT}" "$pid" 2>/dev/null || true
  wait "$pid" 2>/dev/null || true
  unset "cluster_pids[$1]"
}

close_clusters() {
  trap - EXIT
  trap '' INT TERM HUP
  local name
  if [[ -n $psql_pid ]]; then kill "$psql_pid" 2>/dev/null || true; fi
  for name in "${!cluster_pids[@]}"; do kill -s INT "${cluster_pids[$name]}" 2>/dev/null || true; done
  for name in "${!cluster_pids[@]}"; do wait "${cluster_pids[$name]}" 2>/dev/null || true; done
  if [[ -n $clusters_folder ]]; then rm -rf -- "$clusters_folder"; fi
}

# Becomes psql as the superuser in the database `halvex` of a server, without the user's own start file
# and without a history, because private keys pass through it.
exec_psql() {
  local name=$1
  shift
  export PSQL_HISTORY=/dev/null PGHOST PGPORT=5432 PGUSER=postgres PGDATABASE=${PGDATABASE:-halvex}
  PGHOST=$(cluster_socket "$name")
  exec "$pg_bin/psql" -X -v ON_ERROR_STOP=1 "$@"
}

# psql_on NAME [psql option]...: runs psql and returns its status.
psql_on() (
  exec_psql "$@"
)

# psql_session NAME [psql option]...: the same for the user of this script, who may type into it. psql
# runs beside the script, which so can still be told to stop; a Ctrl-C is psql's.
psql_session() {
  trap : INT
  exec_psql "$@" <&0 &
  psql_pid=$!
  local status=0
  while kill -0 "$psql_pid" 2>/dev/null; do
    status=0
    wait "$psql_pid" || status=$?
  done
  psql_pid=
  return "$status"
}
