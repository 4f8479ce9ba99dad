#!/usr/bin/env bash
# Starts or stops a throw-away PostgreSQL server for the tests.
#   eval "$(bash scripts/pg.sh start)"   prints the exports QARVO_TEST_PG_URL and QARVO_PG_DIR
#   bash scripts/pg.sh stop DIR          stops the server through its pid file and removes DIR
set -euo pipefail

pg_bin() {
  local dir
  dir=$(ls -d /usr/lib/postgresql/*/bin 2>/dev/null | sort -V | tail -n 1)
  [ -n "$dir" ] || { echo "pg.sh: no PostgreSQL server binaries found" >&2; exit 1; }
  echo "$dir"
}

as_owner() {
  if [ "$(id -u)" -eq 0 ]; then
    runuser -u postgres -- "$@"
  else
    "$@"
  fi
}

free_port() {
  local port
  for _ in $(seq 1 50); do
    port=$((20000 + RANDOM % 40000))
    if ! (exec 3<>/dev/tcp/127.0.0.1/$port) 2>/dev/null; then
      echo "$port"; return
    fi
  done
  echo "pg.sh: no free port found" >&2; exit 1
}

start() {
  local bin dir port
  bin=$(pg_bin)
  dir=$(mktemp -d /tmp/qarvo-pg.XXXXXX)
  chmod 755 "$dir"
  [ "$(id -u)" -eq 0 ] && chown postgres "$dir"
  port=$(free_port)
  as_owner "$bin/initdb" -D "$dir/data" -A trust -U postgres --no-sync -E UTF8 >"$dir/initdb.log" 2>&1 \
    || { cat "$dir/initdb.log" >&2; exit 1; }
  as_owner "$bin/pg_ctl" -D "$dir/data" -l "$dir/server.log" -w -t 60 \
    -o "-k $dir -p $port -c listen_addresses=127.0.0.1 -c fsync=off -c max_connections=50" start >/dev/null \
    || { cat "$dir/server.log" >&2; exit 1; }
  as_owner "$bin/psql" -h "$dir" -p "$port" -U postgres -q -c "CREATE DATABASE qarvo_test" >/dev/null
  echo "export QARVO_PG_DIR=$dir"
  echo "export QARVO_TEST_PG_URL=postgresql://postgres@127.0.0.1:$port/qarvo_test"
}

stop() {
  local dir=$1 pid
  [ -f "$dir/data/postmaster.pid" ] || { rm -rf "$dir"; return 0; }
  pid=$(head -n 1 "$dir/data/postmaster.pid")
  kill -INT "$pid" 2>/dev/null || true
  for _ in $(seq 1 100); do
    kill -0 "$pid" 2>/dev/null || break
    sleep 0.1
  done
  rm -rf "$dir"
}

case "${1:-}" in
  start) start ;;
  stop) stop "${2:?directory}" ;;
  *) echo "usage: pg.sh start | stop DIR" >&2; exit 2 ;;
esac
