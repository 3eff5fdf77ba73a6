#!/usr/bin/env bash
# Shows the real daemon at work: starts it under the small controller, lets a simulated site connect, and stops both again.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

usage() {
  cat <<'TEXT'
usage: ./run demo [--scene NAME] [--once] [--build DIR] [SITE]
  --scene NAME  plan (the default): an office whose channels and power are planned
                steering: a meeting room that fills, its clients spread over the access points, and somebody who walks by
  --once        end after the first plan, or at the end of the scene, with status 0 only if it shows what the site expects
  --build DIR   take the programs of this build; otherwise build/release is built first
  SITE          a site file of your own, its setup beside it as NAME-setup.json
TEXT
}

complain() {
  echo "demo: $*" >&2
  usage >&2
  exit 2
}

once=()
build=
site=
scene=plan
while [ $# -gt 0 ]; do
  case $1 in
    --once) once=(--once) ;;
    --build)
      [ $# -gt 1 ] || complain "--build wants a directory"
      build=$2
      shift
      ;;
    --scene)
      [ $# -gt 1 ] || complain "--scene wants a name"
      scene=$2
      shift
      ;;
    -h | --help)
      usage
      exit
      ;;
    -*) complain "unknown option '$1'" ;;
    *)
      [ -z "$site" ] || complain "two sites, '$site' and '$1'"
      site=$1
      ;;
  esac
  shift
done
case $scene in
  plan) default_site=sim/sites/office.json duration="a cycle takes about a minute" ;;
  steering) default_site=sim/sites/meeting.json duration="the scene takes about three minutes" ;;
  *) complain "no scene '$scene'; there are plan and steering" ;;
esac
for program in controller/zal_controller controller/zalctl daemon/zal_rrm sim/zal_apsim; do
  [ -z "$build" ] || [ -x "$build/$program" ] || complain "no $program in $build"
done
site=${site:-$default_site}
setup=${site%.json}-setup.json
for file in "$site" "$setup"; do
  [ -r "$file" ] || complain "cannot read $file; a site needs $site and $setup"
done
grep -q '"listen_port" *: *[0-9]' "$setup" || complain "no listen_port in $setup; the demo puts a free one in its place"

# Whoever still runs holds the lock, the programs included, and a controller holds one of its own: nobody's directory is
# taken away under him.
state=$PWD/.zal/demo
mkdir -p "$PWD/.zal"
exec 9>"$state.lock"
leave_to_others() {
  echo "demo: one runs in $state already; end that one first" >&2
  exit 1
}
no_controller_there() { [ ! -e "$state/lock" ] || flock -n "$state/lock" true; }
flock -n 9 && no_controller_there || leave_to_others

if [ -z "$build" ]; then
  ./run demo-build
  build=build/release
  no_controller_there || leave_to_others
fi

rm -rf "$state"
mkdir -p "$state"
controller=
simulation=
prefix=
serves=

# Ends one of our own processes; its status is the result.
end() {
  [ -n "$1" ] || return 0
  kill -TERM "$1" 2>/dev/null || true
  wait "$1"
}

# The newest report of every domain, as it lies in the files: one line a radio.
show_reports() {
  local index domain date
  for index in "$state"/data/zal/morvane-reports/report_idx_*.txt; do
    [ -s "$index" ] || continue
    domain=${index##*/report_idx_}
    domain=${domain%.txt}
    date=$(tail -n 1 "$index" | cut -d, -f2,3)
    echo "demo: the report that zal_rrm wrote for the domain $domain at ${date/,/ } UTC"
    awk -F, -v date="$date" '
      BEGIN { printf "  %-17s  %5s  %-11s  %-9s  %-9s  %s\n", "access point", "radio", "channel", "power dBm", "EIRP dBm", "MHz" }
      $2 "," $3 == date { printf "  %s  %5d  %3d -> %3d   %2d -> %2d   %2d -> %2d   %3d\n", $4, $10, $8, $9, $6, $7, $16, $17, $11 }
    ' "${index%/*}/report_$domain.txt"
  done
}

# The access points go first, as they would at a site whose controller is stopped last. Nothing that fails here keeps the
# rest from being ended, not even words for a terminal that is gone.
finish() {
  local status=$?
  trap '' INT TERM HUP QUIT
  trap - EXIT
  set +e
  end "$simulation"
  if ! end "$controller" && [ -n "$serves" ]; then
    echo "demo: zal_rrm did not end cleanly; see $state/zal_rrm.log and $state/zal_rrm.err" >&2
    status=1
  fi
  # What was started in the very moment of an interruption has no name here yet.
  kill -TERM $(jobs -pr) 2>/dev/null
  exec 8>&-
  [ -z "$prefix" ] || wait "$prefix"
  show_reports || echo "demo: the report cannot be shown" >&2
  [ ! -e "$state/plan/plan.json" ] || echo "demo: plan and floor plans are in $state/plan"
  [ ! -e "$state/steering/steering.json" ] || echo "demo: the figures are in $state/steering/steering.json"
  exit "$status"
}

# Being interrupted is how a demonstration normally ends, but one that was to run until a plan has none then.
interrupt() {
  [[ " ${FUNCNAME[*]} " != *" finish "* ]] || return 0
  trap '' INT TERM HUP QUIT
  echo "demo: stopping" || true
  [ ${#once[@]} -eq 0 ] && exit 0
  exit 130
}
trap finish EXIT
trap interrupt INT TERM HUP QUIT

listens() { (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; }

next_port() {
  echo "demo: port $port is taken, trying the next"
  port=$((port + 1))
}

# A port that nobody listens on, from 8099 upward.
port=8099
while listens; do next_port; done

logged() { grep -qs "$1" "$state/zal_rrm.log"; }

runs() { kill -0 "$1" 2>/dev/null; }

write_setup() { sed "s/\"listen_port\" *: *[0-9]*/\"listen_port\": $port/" "$setup" >"$state/setup.json"; }

# Somebody may take the port before the daemon does, and the access points would come to him: the daemon's own word
# counts, and a port that it cannot have is passed. Fails if it does not listen within 40 seconds.
await_daemon() {
  local deadline=$((SECONDS + 40))
  while ((SECONDS < deadline)); do
    logged "Starting [0-9]* lws threads" && listens && return
    runs "$controller" || return 0
    if logged "Can't listen on port $port,"; then
      next_port
      write_setup
      "$build/controller/zalctl" --state "$state" setup "$state/setup.json" >/dev/null || return
    fi
    sleep 0.1
  done
  return 1
}

# What a controller knows of its access points by itself. It answers with their locations, addresses and bands.
"$build/sim/zal_apsim" --site "$site" --server "ws://127.0.0.1:$port/apb/rrm" --records "$state"
if [ -e "$state/boards.json" ]; then
  mkdir -p "$state/etc/zal"
  mv "$state/boards.json" "$state/etc/zal/"
fi

exec 8> >(
  trap '' INT TERM HUP QUIT
  exec sed -u 's/^/controller | /'
)
prefix=$!

# Each gets a session of its own: what the terminal's keys mean is this script's to say, and the order of the end too.
echo "demo: starting zal_rrm under zal_controller; its log is $state/zal_rrm.log"
write_setup
setsid "$build/controller/zal_controller" --state "$state" --setup "$state/setup.json" --vrrp 1 \
  --ap-info "$state/ap-info.json" \
  --daemon "$build/daemon/zal_rrm" >&8 2>&1 8>&- &
controller=$!

# Access points that find nobody come again and again, and say so: they come when somebody is there.
await_daemon || {
  echo "demo: zal_rrm does not listen; see $state/zal_rrm.log and $setup" >&2
  exit 1
}
serves=yes
if runs "$controller"; then
  echo "demo: the access points of $site subscribe; $duration"
  setsid "$build/sim/zal_apsim" --site "$site" --server "ws://127.0.0.1:$port/apb/rrm" --scene "$scene" \
    --out "$state/$scene" "${once[@]}" 8>&- &
  simulation=$!
fi

# Whichever ends first ends the demonstration. Looked for and not waited for: a bash that is interrupted in its wait may
# miss who ends afterwards, and would then wait for him for ever.
while runs "$controller" && { [ -z "$simulation" ] || runs "$simulation"; }; do sleep 0.2; done
status=0
if [ -n "$simulation" ] && ! runs "$simulation"; then
  wait "$simulation" || status=$?
  simulation=
else
  wait "$controller" || status=$?
  controller=
  echo "demo: the controller ended; see $state" >&2
  [ ${#once[@]} -eq 0 ] || status=1
fi
exit "$status"
