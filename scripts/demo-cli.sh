#!/usr/bin/env bash
# The terminal demo: a short conversation through zuvero-cli with a local zuvero-devserver
# that answers by itself. Needs no display and no network beyond loopback.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${BUILD:-$here/build}
. "$here/scripts/devserver-lib.sh"

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
