#!/bin/sh
# Runs a command beside a throwaway PostgreSQL cluster: a new cluster in a
# temporary folder, listening only on a Unix socket in that folder, stopped
# and removed when the command ends, whatever it answers.
#   scripts/pg-cluster.sh COMMAND [ARGS...]
# The command sees
#   RECMAN_SERVER     a connection string to the cluster's empty database
#   PG_CLUSTER_DIR    the cluster's folder (data in $PG_CLUSTER_DIR/data)
#   PG_CLUSTER_BIN    the folder of the server's programs
#   PG_CLUSTER_USER   the account the server runs as (empty: the caller's)
# The server refuses to run as root; under root it runs as the account
# `postgres`, which then owns the folder.
set -eu

bin=""
for d in $(ls -d /usr/lib/postgresql/*/bin 2>/dev/null | sort -V -r); do
    if [ -x "$d/initdb" ] && [ -x "$d/pg_ctl" ]; then bin=$d; break; fi
done
if [ -z "$bin" ]; then
    initdb=$(command -v initdb || true)
    [ -n "$initdb" ] || { echo "pg-cluster: initdb not found (Debian package postgresql)" >&2; exit 2; }
    bin=$(dirname "$initdb")
fi

user=""
if [ "$(id -u)" -eq 0 ]; then
    user=postgres
    id "$user" >/dev/null 2>&1 || { echo "pg-cluster: no account '$user' to run the server" >&2; exit 2; }
fi
as() {
    if [ -n "$user" ]; then runuser -u "$user" -- "$@"; else "$@"; fi
}

dir=$(mktemp -d /tmp/recman-pg-XXXXXX)
chmod 755 "$dir"
[ -z "$user" ] || chown "$user" "$dir"
data="$dir/data"
log="$dir/server.log"

stop() {
    as "$bin/pg_ctl" -D "$data" -m immediate stop >/dev/null 2>&1 || true
    rm -rf "$dir"
}
trap stop EXIT
trap 'exit 130' INT TERM

if ! as "$bin/initdb" -D "$data" -A trust -U postgres -E UTF8 --locale=C >"$dir/initdb.log" 2>&1; then
    cat "$dir/initdb.log" >&2
    exit 2
fi
cat >>"$data/postgresql.conf" <<EOF
listen_addresses = ''
unix_socket_directories = '$dir'
fsync = off
synchronous_commit = off
full_page_writes = off
max_connections = 200
max_locks_per_transaction = 256
EOF
if ! as "$bin/pg_ctl" -D "$data" -l "$log" -w -t 60 start >/dev/null; then
    cat "$log" >&2
    exit 2
fi
as "$bin/createdb" -h "$dir" -U postgres recman

export RECMAN_SERVER="host=$dir dbname=recman user=postgres"
export PG_CLUSTER_DIR="$dir"
export PG_CLUSTER_BIN="$bin"
export PG_CLUSTER_USER="$user"
rc=0
"$@" || rc=$?
exit "$rc"
