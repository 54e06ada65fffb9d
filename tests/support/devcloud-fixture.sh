#!/usr/bin/env bash
# ctest fixture: starts or stops a shared nubra-devcloud for the e2e tests.
#   devcloud-fixture.sh start DIR BINARY   writes DIR/config.json and DIR/pid
#   devcloud-fixture.sh stop DIR
# With VORN_TEST_DEVCLOUD_TLS=1 the cloud serves its API over HTTPS (--tls).
set -euo pipefail
action=$1 dir=$2
case "$action" in
start)
  bin=$3
  mkdir -p "$dir"
  # The log of an earlier run goes too: the redirection below happens in the
  # background, and the wait must not find that run's "listening on" line.
  rm -f "$dir/config.json" "$dir/pid" "$dir/devcloud.log"
  tls=()
  [ "${VORN_TEST_DEVCLOUD_TLS:-}" = 1 ] && tls=(--tls)
  "$bin" --port 0 --data "$dir/data" --write-config "$dir/config.json" "${tls[@]}" >"$dir/devcloud.log" 2>&1 &
  echo $! >"$dir/pid"
  for _ in $(seq 1 150); do
    if grep -q "listening on" "$dir/devcloud.log" 2>/dev/null; then exit 0; fi
    if ! kill -0 "$(cat "$dir/pid")" 2>/dev/null; then cat "$dir/devcloud.log"; exit 1; fi
    sleep 0.1
  done
  echo "nubra-devcloud did not start within 15 s"; cat "$dir/devcloud.log"; exit 1
  ;;
stop)
  [ -f "$dir/pid" ] || exit 0
  pid=$(cat "$dir/pid")
  kill -TERM "$pid" 2>/dev/null || true
  for _ in $(seq 1 100); do kill -0 "$pid" 2>/dev/null || { rm -f "$dir/pid"; exit 0; }; sleep 0.1; done
  kill -KILL "$pid" 2>/dev/null || true
  rm -f "$dir/pid"
  ;;
*) echo "usage: $0 start DIR BINARY | stop DIR"; exit 2 ;;
esac
