#!/usr/bin/env bash
# Renders the demo's home-feed trace as Zipkin's web UI draws it, into
# docs/demo-home-feed-trace.png: starts a Zipkin server (Tools/zipkin-server.sh) on a spare port,
# sends it the demo's spans, opens the trace in headless Chromium and saves what the page shows.
# Usage: Tools/render-demo-trace.sh [BUILD_FOLDER]   (build/release by default; needs Debian's
# chromium package: apt-get install chromium)
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/release}
port=9499
log=$(mktemp)
bash Tools/zipkin-server.sh --server.port=$port >"$log" 2>&1 &
server=$!
trap 'kill $server' EXIT
timeout 120 grep -m1 -q "Serving HTTP" <(tail -f "$log")

trace=$("$build/Examples/QENDemo" --output "$(mktemp -d)" \
  --send "http://127.0.0.1:$port/api/v2/spans" |
  sed -n 's/^home_feed_render: .* in trace \([0-9a-f]*\),.*/\1/p')
# The page draws itself from the API's answer: virtual time lets it finish before the shot.
chromium --headless --no-sandbox --hide-scrollbars --window-size=1400,1150 \
  --virtual-time-budget=15000 --screenshot=docs/demo-home-feed-trace.png \
  "http://127.0.0.1:$port/zipkin/traces/$trace"
