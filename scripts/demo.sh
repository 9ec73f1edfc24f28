#!/usr/bin/env bash
# The demo: spf-host with the demo bundle on its own exchange, and an agent-exchange with
# legacy-agent beside it, found through the agent registry; calls to both kinds of service
# through the console. Run by `./build.sh demo` once the programs are built; the folder of
# the build is its argument.
set -euo pipefail
bin="$1/bin"
work=$(mktemp -d /tmp/spf-demo.XXXXXX)
pids=()
stop_all() {
  for pid in "${pids[@]}"; do kill -TERM "$pid" 2>/dev/null || true; done
  for pid in "${pids[@]}"; do wait "$pid" 2>/dev/null || true; done
  rm -rf "$work"
}
trap stop_all EXIT

# Registry, sockets and control socket stay in this folder: the demo meets no other host.
export XDG_RUNTIME_DIR="$work"

# Reads the first line of a child's output into REPLY, or fails after 20 s.
first_line() {
  local fifo=$1 what=$2
  if ! read -r -t 20 REPLY < "$fifo"; then
    echo "demo: $what did not start" >&2
    exit 1
  fi
}

echo "== starting agent-exchange and legacy-agent"
mkfifo "$work/exchange.out" "$work/agent.out"
"$bin/agent-exchange" --name demo-exchange --endpoint "ipc://$work/exchange.ipc" --mode korvexdrive \
  > "$work/exchange.out" 2> "$work/exchange.log" &
pids+=($!)
first_line "$work/exchange.out" agent-exchange
echo "   $REPLY"
url=${REPLY#listening }
"$bin/legacy-agent" --exchange "$url" > "$work/agent.out" 2> "$work/agent.log" &
pids+=($!)
first_line "$work/agent.out" legacy-agent
echo "   legacy-agent $REPLY"

# Two configurations: the demo services run on the host's own exchange; the exchanges that the
# registry lists are watched for the services others run there.
mkdir "$work/config"
cat > "$work/config/qz.spf.legacyservicepublisher~host.json" <<'JSON'
{
  "config": {"endpointsToConnectTo": ["inprocess"]},
  "serviceConfigurations": [
    {"name": "demo.Calculator", "version": {"major": 1}, "requestedProperties": {}, "uniqueID": "calculator"},
    {"name": "demo.Text", "version": {"major": 1}, "requestedProperties": {}, "uniqueID": "text"}
  ]
}
JSON
cat > "$work/config/qz.spf.legacyservicepublisher~agents.json" <<'JSON'
{"config": {"endpointsToConnectTo": ["korvexConnectorDiscovery"]}, "serviceConfigurations": []}
JSON

echo "== spf-host: services in the host and in legacy-agent, called through the console"
status=0
"$bin/spf-host" --config-dir "$work/config" --log-level error \
  --exec "wait demo.Calculator 20000" --exec "wait demo.Text 20000" \
  --exec "wait KeyValueStore 20000" --exec "wait Clock 20000" \
  --exec "list" \
  --exec "describe demo.Calculator" \
  --exec "call demo.Calculator add 20 22" \
  --exec "call demo.Calculator divide 1 8" \
  --exec "call demo.Text words 'calls travel through the exchange'" \
  --exec "call KeyValueStore put greeting 'hello from the demo'" \
  --exec "call KeyValueStore get greeting" \
  --exec "call Clock echo tick" \
  --exec "call Clock millisecondsSinceEpoch" \
  2> "$work/host.log" | sed 's/^/   /' || status=$?
if [ "$status" -ne 0 ]; then
  echo "demo: a command failed (exit status $status); the logs:" >&2
  cat "$work/host.log" "$work/exchange.log" "$work/agent.log" >&2
  exit 1
fi
echo "== stopping"
