#!/usr/bin/env bash
# The demo: a short conversation through zuvero-cli with a local zuvero-devserver
# that answers by itself. Needs no display and no network beyond loopback.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${BUILD:-$here/build}
"$here/scripts/setup.sh" "$build"

work=$(mktemp -d)
server_pid=
cleanup() {
    if [ -n "$server_pid" ]; then kill "$server_pid" 2>/dev/null || true; wait "$server_pid" 2>/dev/null || true; fi
    rm -rf "$work"
}
trap cleanup EXIT

secret=$(openssl rand -hex 32)
"$build/devserver/zuvero-devserver" --port 0 --data "$work/server" --api-secret "$secret" \
    --bot --bot-delay 300 >"$work/server.out" 2>"$work/server.log" &
server_pid=$!
for _ in $(seq 100); do
    grep -q 'listening on' "$work/server.out" 2>/dev/null && break
    kill -0 "$server_pid" 2>/dev/null || { cat "$work/server.log" >&2; exit 1; }
    sleep 0.1
done
origin=$(grep -oE 'https://[0-9.]+:[0-9]+' "$work/server.out" | tail -n 1)
authority=$(sed -n 's/^zuvero-devserver: certificate authority: //p' "$work/server.out")
echo "zuvero-devserver is listening on $origin"

cli() {
    "$build/tools/cli/zuvero-cli" --host "${origin#https://}" --api-secret "$secret" \
        --ca-file "$authority" --state "$work/state" --user-id demo-user --user-name "Demo User" "$@"
}

echo; echo "== register"; cli register
echo; echo "== send a text"; cli send "Hello! My order has not arrived yet."
# A map tile the server draws serves as the picture.
curl -s --fail --cacert "$authority" -o "$work/picture.png" "$origin/tiles/3/4/2.png"
echo; echo "== send a picture"; cli send "Here is where I live." --file "$work/picture.png"

echo; echo "== wait for the agent's answers"
for _ in $(seq 100); do
    answers=$(cli history | grep -c '"sender":"agent"' || true)
    [ "$answers" -ge 2 ] && break
    sleep 0.2
done
echo "$answers answers"

echo; echo "== history"; cli history
echo; echo "== unread count"; cli status
