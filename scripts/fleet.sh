#!/usr/bin/env bash
# Watches a fleet of hosts with a real Prometheus on this machine: starts N hosts (20 by default) with scripted drivers,
# has Prometheus scrape them and evaluate examples/monitoring/alerts.yml, makes an alert fire and clear, prints
# queries over the whole fleet, and measures what a host's metrics cost. Takes about a minute.
#   scripts/fleet.sh [N]      N from 2 to 200
# Needs what scripts/setup.sh --tools installs. The last line is "fleet: all as expected", or lists what failed.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/lib/common.sh

answer_help "$@"
hosts=20
if [ $# -gt 0 ]; then hosts=$1; fi
if [ $# -gt 1 ]; then refuse "$2"; fi
if ! [[ "$hosts" =~ ^[0-9]+$ ]] || [ "$hosts" -lt 2 ] || [ "$hosts" -gt 200 ]; then refuse "$hosts"; fi

scripts/setup.sh >&2
scripts/setup.sh --tools >&2
build_preset release fenlux fenlux-host >&2
exec python3 scripts/lib/fleet.py "$hosts" build/release/fenlux-host examples/monitoring/alerts.yml
