#!/usr/bin/env bash
# Shows the real daemon at work: starts it under the small controller, lets the simulated office connect, and stops both
# again. With --once it ends after the first cycle, with status 0 only if the site was planned.
#
# usage: sim/demo.sh BUILD_DIR [--once] [SITE]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

build=$(realpath "${1:?usage: sim/demo.sh BUILD_DIR [--once] [SITE]}")
shift
once=()
site=sim/sites/office.json
for argument in "$@"; do
  case $argument in
    --once) once=(--once) ;;
    -*)
      echo "demo: unknown option '$argument'" >&2
      exit 2
      ;;
    *) site=$argument ;;
  esac
done
setup=${site%.json}-setup.json
[ -r "$site" ] && [ -r "$setup" ] || {
  echo "demo: a site needs both files: $site and $setup" >&2
  exit 2
}

state=$PWD/.zal/demo
rm -rf "$state"
mkdir -p "$state"

controller=
simulation=

# Ends one of our own processes and waits for it.
end() {
  local pid=$1
  [ -n "$pid" ] || return 0
  kill -TERM "$pid" 2>/dev/null || return 0
  wait "$pid" || return 0
}

finish() {
  trap '' INT TERM
  end "$simulation"
  end "$controller"
}
trap finish EXIT
interrupted=
trap 'interrupted=yes' INT TERM

# A port that nobody listens on, from 8099 upward.
port=8099
while (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; do
  echo "demo: port $port is taken, trying the next"
  port=$((port + 1))
done
sed "s/\"listen_port\": *[0-9]*/\"listen_port\": $port/" "$setup" >"$state/setup.json"

echo "demo: starting zal_rrm under zal_controller; its log is $state/zal_rrm.log"
"$build/controller/zal_controller" --state "$state" --setup "$state/setup.json" --vrrp 1 \
  --daemon "$build/daemon/zal_rrm" > >(sed -u 's/^/controller | /') 2>&1 &
controller=$!

echo "demo: the access points of $site subscribe; a cycle takes about a minute"
"$build/sim/zal_apsim" --site "$site" --server "ws://127.0.0.1:$port/apb/rrm" --out "$state/plan" "${once[@]}" &
simulation=$!

# Whichever ends first ends the demonstration; Ctrl-C ends both.
status=0
wait -n "$simulation" "$controller" || status=$?
if [ -n "$interrupted" ]; then
  echo "demo: stopping"
  status=0
elif ! kill -0 "$controller" 2>/dev/null; then
  echo "demo: the controller ended; see $state" >&2
  status=1
fi
finish
trap - EXIT
echo "demo: plan and floor plans are in $state/plan"
exit "$status"
