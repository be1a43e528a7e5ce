# Sourced by the demo scripts: starts a zuvero-devserver that answers by itself
# on a free loopback port, with its data in $work/server, and stops it on exit.
# Sets: secret, origin (https://127.0.0.1:PORT), authority (its CA's PEM file).

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
