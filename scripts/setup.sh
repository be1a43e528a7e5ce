#!/usr/bin/env bash
# Installs the Debian packages the project needs (only those missing), then
# configures and builds one build tree.
#
#   scripts/setup.sh [--deps-only] [BUILD_DIR [extra cmake arguments...]]
#
# Idempotent: with everything installed and built it costs one dpkg query and
# an incremental build.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

packages=(
    # toolchain
    g++ cmake ninja-build pkg-config clang-format
    # Qt 6.4
    qt6-base-dev qt6-base-dev-tools qt6-svg-dev qt6-l10n-tools qt6-image-formats-plugins
    # whether there is a camera to offer, and the user's position
    qt6-multimedia-dev qt6-positioning-dev
    # the dev server's gazetteer (zone1970.tab, iso3166.tab)
    tzdata
    # PDF attachments
    qt6-pdf-dev
    # crypto, test certificates, a private session bus for the badge test,
    # fonts for widgets rendered offscreen
    libssl-dev openssl dbus-daemon dbus-session-bus-common fonts-dejavu-core
    # gzip and deflate replies
    zlib1g-dev
    # network namespaces for the reachability test; Python's own multipart
    # reader and compressors check the network code's bytes
    iproute2 python3
    # the development server (HTTPS, SQLite) and its tests: curl as a second
    # client, headless Chromium for the agent console
    libcpp-httplib-dev libsqlite3-dev curl chromium chromium-driver
    # fuzzing (clang with libFuzzer's runtime) and the benchmarks' instruction
    # counts (valgrind's callgrind and its client-request header)
    clang libclang-rt-dev valgrind
    # the API reference (make docs) and the Debian packages (make package: CPack
    # reads the binaries' dependencies with dpkg-shlibdeps and their kind with file)
    doxygen dpkg-dev file
)

# Node and npm run the console's browser test. Any recent Node will do, so
# one already installed (from Debian or elsewhere) is kept.
if ! command -v node >/dev/null || ! command -v npm >/dev/null; then
    packages+=(nodejs npm)
fi

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${db:Status-Status}' "$p" 2>/dev/null | grep -qx installed; then
        missing+=("$p")
    fi
done

if ((${#missing[@]})); then
    echo "setup: installing ${missing[*]}"
    sudo=()
    if [ "$(id -u)" -ne 0 ]; then sudo=(sudo); fi
    export DEBIAN_FRONTEND=noninteractive
    apt_install() {
        "${sudo[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
    }
    if ! apt_install; then
        "${sudo[@]}" apt-get update -q
        apt_install
    fi
fi

# The browser test's npm packages, exactly as locked, whenever the lock changes.
browser_test="$here/tests/devserver"
if ! cmp -s "$browser_test/package-lock.json" "$browser_test/node_modules/.zuvero-package-lock.json"; then
    echo "setup: installing the browser test's npm packages"
    (cd "$browser_test" && npm ci --no-audit --no-fund)
    cp "$browser_test/package-lock.json" "$browser_test/node_modules/.zuvero-package-lock.json"
fi

if [ "${1:-}" = "--deps-only" ]; then
    exit 0
fi

build=${1:-build}
shift || true
case "$build" in /*) ;; *) build="$here/$build" ;; esac

if [ ! -f "$build/CMakeCache.txt" ] || [ $# -gt 0 ]; then
    cmake -S "$here" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@"
fi
cmake --build "$build" --parallel "$(nproc)"
