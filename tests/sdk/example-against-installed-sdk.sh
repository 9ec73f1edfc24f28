#!/usr/bin/env bash
# Installs the build at $1 into a fresh prefix, builds the example project at $2 against it,
# moves the prefix elsewhere, and calls the example's bundle through the moved spf-host: its
# default bundle folder, and the example's folder given with --bundles. $3 is a scratch folder,
# emptied first.
set -euo pipefail
build=$1 example=$2 work=$3
rm -rf "$work"
mkdir -p "$work/config"
prefix="$work/prefix"

step() { echo "== $*"; }
step "installing the SDK into $prefix"
cmake --install "$build" --prefix "$prefix" > "$work/install.log"
step "building the example against it"
cmake -S "$example" -B "$work/example" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_PREFIX_PATH="$prefix" \
  > "$work/example.log"
cmake --build "$work/example" >> "$work/example.log"
step "moving the installation to $work/moved"
mv "$prefix" "$work/moved"
# Nothing installed may lead back into the build tree (an rpath, a default folder).
if grep -rlF -- "$build" "$work/moved"; then
  echo "the installed files above name the build tree $build" >&2
  exit 1
fi

cat > "$work/config/qz.spf.legacyservicepublisher~example.json" <<'JSON'
{
  "config": {"endpointsToConnectTo": ["inprocess"]},
  "serviceConfigurations": [
    {"name": "example.Greeter", "version": {"major": 1}, "requestedProperties": {}, "uniqueID": "greeter"}
  ]
}
JSON
step "calling it through $work/moved/bin/spf-host"
# The host's sockets and registry stay in the scratch folder.
export XDG_RUNTIME_DIR="$work"
status=0
"$work/moved/bin/spf-host" --no-listen --config-dir "$work/config" --log-level error --bundles "$work/example/bundles" \
  --exec "wait example.Greeter 20000" \
  --exec "call example.Greeter greet 'installed SDK'" \
  --exec "call example.Greeter count '[\"a\", \"b\", \"c\"]'" \
  > "$work/host.out" 2> "$work/host.log" || status=$?
cat "$work/host.out"
expect() {
  grep -qxF -- "$1" "$work/host.out" || { echo "missing from the host's answers: $1" >&2; cat "$work/host.log" >&2; exit 1; }
}
[ "$status" -eq 0 ] || { echo "spf-host exited with $status" >&2; cat "$work/host.log" >&2; exit 1; }
expect '"Hello, installed SDK"'
expect '3'
