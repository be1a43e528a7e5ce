# Sourced by the demo scripts after they set $here and $build: builds, makes a
# scratch folder ($work, removed on exit) and starts a zuvero-devserver that
# answers by itself on a free loopback port, with its data in $work/server,
# stopped on exit.
# Sets: work, secret, origin (https://127.0.0.1:PORT), authority (its CA's PEM file).

"$here/scripts/setup.sh" "$build"
work=$(mktemp -d)
server_pid=
cleanup() {
    stop_devserver
    rm -rf "$work"
}
trap cleanup EXIT

start_devserver() {
    local build=$1 work=$2
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
    if [ -z "$origin" ] || [ -z "$authority" ]; then
        echo "zuvero-devserver did not start:" >&2
        cat "$work/server.log" >&2
        exit 1
    fi
    echo "zuvero-devserver is listening on $origin"
}

stop_devserver() {
    if [ -n "${server_pid:-}" ]; then
        kill "$server_pid" 2>/dev/null || true
        wait "$server_pid" 2>/dev/null || true
    fi
}

start_devserver "$build" "$work"
