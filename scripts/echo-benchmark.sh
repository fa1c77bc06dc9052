#!/usr/bin/env bash
# The echo benchmark: portwren's echo client and server against a raw echo (bench/echo_raw.cpp: a
# reader/writer pair with the same in-flight cap, no checks), first over one socat pair, then over
# a direct pseudo-terminal pair. On the direct pair one end is the raw program itself, so each of
# portwren's two halves is measured there against the raw other half.
#   urge, 16000-byte chunks: throughput, goal >= 0.90 of raw
#   mild, 64-byte chunks:    round trips per second, goal >= 0.80 of raw
#   --echo-need-log on both sides against none (socat): goal >= 0.50
#   CPU time of client plus server per MB moved, beside the raw pair's
#   mild round-trip latency (count, min, median, p90, p99, max in us) of portwren's client and of
#   the raw lock-step pair, side by side (no goal: they are figures to read)
# portwren's fixed costs (start-up, the client's 500 ms port clearing) are taken out by timing two
# runs of different lengths and dividing the difference in bytes by the difference in time.
# Usage: scripts/echo-benchmark.sh <echo_raw binary> <portwren binary>
set -uo pipefail

raw=$(realpath "${1:?usage: echo-benchmark.sh <echo_raw> <portwren>}")
exe=$(realpath "${2:?usage: echo-benchmark.sh <echo_raw> <portwren>}")
command -v socat >/dev/null || { echo "echo-benchmark: socat is not installed" >&2; exit 2; }

# Bytes of the two urge runs and chunks of the two mild runs (BENCH_SCALE=0.2 for a quick look).
scale=${BENCH_SCALE:-1}
urge_short=$(awk "BEGIN{print int(16000000*$scale)}")
urge_long=$(awk "BEGIN{print int(96000000*$scale)}")
mild_short=$(awk "BEGIN{print int(2000*$scale)}")
mild_long=$(awk "BEGIN{print int(14000*$scale)}")
cap=32000  # --echo-rwbufx (2) x 16000: what portwren's client keeps in flight in urge mode

source "$(dirname "${BASH_SOURCE[0]}")/process_scope.sh"
status=0

die() {
  echo "echo-benchmark: $*" >&2
  exit 1
}

wait_for() {
  for _ in $(seq 150); do grep -aq "$1" "$2" 2>/dev/null && return 0; sleep 0.1; done
  die "no \"$1\" in $2: $(tail -n 5 "$2")"
}

# CPU seconds (user + system) a running process has used.
cpu_of() {
  local ticks
  ticks=$(awk '{print $14 + $15}' "/proc/$1/stat" 2>/dev/null || echo 0)
  awk "BEGIN{print $ticks / $(getconf CLK_TCK)}"
}

# A socat null-modem pair: $work/near and $work/far.
make_socat_pair() {
  rm -f "$work/near" "$work/far"
  socat pty,raw,echo=0,link="$work/near" pty,raw,echo=0,link="$work/far" 2>/dev/null &
  link_pid=$!
  pids+=("$link_pid")
  for _ in $(seq 50); do [ -e "$work/near" ] && [ -e "$work/far" ] && return 0; sleep 0.1; done
  die "socat made no pair"
}
drop_link() {
  kill "$link_pid" 2>/dev/null
  wait "$link_pid" 2>/dev/null
}

# The portwren server on a port, with its keys on fd 3.
start_pw_server() {
  rm -f "$work/srv.keys" "$work/srv.out"
  mkfifo "$work/srv.keys"
  (cd "$work" && exec "$exe" "$1" -K 16000 --first-key=S "${@:2}" <"$work/srv.keys" >"$work/srv.out" 2>&1) &
  server_pid=$!
  pids+=("$server_pid")
  exec 3>"$work/srv.keys"
  wait_for "waiting client" "$work/srv.out"
}
stop_pw_server() {
  printf '0' >&3
  wait_for "Echo server stopped" "$work/srv.out"
  exec 3>&-
  wait "$server_pid"
}

# The raw server, on a port or (with --pty) on a direct pair it makes.
start_raw_server() {
  "$raw" server "$@" >"$work/raw_srv.out" 2>&1 &
  server_pid=$!
  pids+=("$server_pid")
  if [ "${2:-}" = "--pty" ]; then wait_for "echo_raw ready" "$work/raw_srv.out"; else sleep 0.3; fi
}
stop_raw_server() {
  kill "$server_pid" 2>/dev/null
  wait "$server_pid" 2>/dev/null
}

# One portwren client run: key, port, bytes, extra options. Sets run_s (wall) and run_cpu.
pw_client() {
  local key=$1 port=$2 bytes=$3
  shift 3
  local start end TIMEFORMAT='%U %S'
  start=$EPOCHREALTIME
  { time (cd "$work" && printf '%s' "$key" | PORTWREN_PRINT_LESS=1 "$exe" "$port" -m "$bytes" "$@" >"$work/cli.out" 2>&1); } 2>"$work/cli.time"
  end=$EPOCHREALTIME
  grep -aq "Echo test success" "$work/cli.out" || die "portwren client failed: $(tail -n 8 "$work/cli.out")"
  run_s=$(awk "BEGIN{print $end - $start}")
  run_cpu=$(awk '{print $1 + $2}' "$work/cli.time")
}

# Urge throughput (MB/s) and CPU s/MB of portwren's client against the server already running.
pw_urge() {
  local port=$1
  shift
  pw_client C "$port" "$urge_short" -k 16000 -K 16000 "$@"
  local t1=$run_s
  local s0
  s0=$(cpu_of "$server_pid")
  pw_client C "$port" "$urge_long" -k 16000 -K 16000 "$@"
  local t2=$run_s c2=$run_cpu s1
  s1=$(cpu_of "$server_pid")
  result=$(awk "BEGIN{print ($urge_long - $urge_short) / ($t2 - $t1) / 1e6}")
  cpu_mb=$(awk "BEGIN{print ($c2 + $s1 - $s0) / ($urge_long / 1e6)}")
}

# The figures of the first "Round trip latency (us): ..." line in a file (portwren's mild client
# and the raw lock-step client print the same line).
latency_of() {
  sed -n 's/.*Round trip latency (us): //p' "$1" | head -n 1
}

# Mild round trips per second of portwren's client; latency: the long run's figures.
pw_mild() {
  local port=$1
  pw_client c "$port" $((mild_short * 64)) -k 64 -K 64
  local t1=$run_s
  pw_client c "$port" $((mild_long * 64)) -k 64 -K 64
  result=$(awk "BEGIN{print ($mild_long - $mild_short) / ($run_s - $t1)}")
  latency=$(latency_of "$work/cli.out")
}

# The raw client: urge or mild, on a port or (extra --pty --delay-ms) a direct pair it makes.
raw_client() {
  local mode=$1 port=$2
  shift 2
  local out s0 s1 c
  s0=$(cpu_of "$server_pid")
  if [ "$mode" = urge ]; then
    out=$("$raw" client "$port" --chunk 16000 --bytes "$urge_long" --cap $cap "$@") || die "raw client: $out"
    s1=$(cpu_of "$server_pid")
    result=$(echo "$out" | sed -n 's/.*mbps=\([0-9.]*\).*/\1/p')
    c=$(echo "$out" | sed -n 's/.*cpu_s=\([0-9.]*\).*/\1/p')
    cpu_mb=$(awk "BEGIN{print ($c + $s1 - $s0) / ($urge_long / 1e6)}")
  else
    out=$("$raw" client "$port" --chunk 64 --bytes $((mild_long * 64)) --lockstep "$@") || die "raw client: $out"
    result=$(echo "$out" | sed -n 's/.*round_trips_per_s=\([0-9.]*\).*/\1/p')
    latency=$(latency_of <(echo "$out"))
  fi
}

# One table row: raw figure, portwren's, their ratio against the goal. A missed goal makes the
# exit status 1.
row() {
  local name=$1 base=$2 ours=$3 goal=$4 unit=$5
  local ratio verdict
  ratio=$(awk "BEGIN{printf \"%.2f\", $ours / $base}")
  verdict=$(awk "BEGIN{print ($ratio >= $goal) ? \"ok\" : \"MISSED\"}")
  [ "$verdict" = ok ] || status=1
  printf '  %-46s %10.1f %10.1f %-5s  ratio %s (goal >= %s) %s\n' "$name" "$base" "$ours" "$unit" "$ratio" "$goal" "$verdict"
}

# One latency row: who, and the figures of its "Round trip latency (us)" line.
latency_row() {
  printf '    %-44s %s\n' "$1" "${2:-(no latency line)}"
}

echo "echo benchmark (scale $scale): urge ${urge_long} bytes in 16000-byte chunks, mild ${mild_long} chunks of 64 bytes"
printf '  %-46s %10s %10s\n' "" "raw" "portwren"

# --- socat pair: raw pair, then portwren's pair.
make_socat_pair
start_raw_server "$work/far"
raw_client urge "$work/near"
raw_urge=$result raw_cpu=$cpu_mb
raw_client mild "$work/near"
raw_mild=$result raw_lat=$latency
stop_raw_server

start_pw_server "$work/far"
pw_urge "$work/near"
pw_urge_socat=$result pw_cpu=$cpu_mb
pw_mild "$work/near"
pw_mild_socat=$result pw_lat_socat=$latency
stop_pw_server

start_pw_server "$work/far" --echo-need-log
pw_urge "$work/near" --echo-need-log
pw_logs=$result pw_logs_cpu=$cpu_mb
stop_pw_server
drop_link

echo "over socat:"
row "urge 16000-byte chunks, MB/s" "$raw_urge" "$pw_urge_socat" 0.90 MB/s
row "mild 64-byte chunks, round trips/s" "$raw_mild" "$pw_mild_socat" 0.80 rt/s
row "urge with --echo-need-log both sides, MB/s" "$pw_urge_socat" "$pw_logs" 0.50 MB/s
printf '  %-46s %10.3f %10.3f  (with logs %.3f)\n' "CPU s per MB, client + server" "$raw_cpu" "$pw_cpu" "$pw_logs_cpu"
echo "  mild 64-byte chunks, round-trip latency (us):"
latency_row "raw lock-step pair" "$raw_lat"
latency_row "portwren client and server" "$pw_lat_socat"

# --- direct pair: the raw program holds one end, portwren or raw the other.
start_raw_server "$work/direct" --pty
raw_client urge "$work/direct"
d_raw_urge=$result d_raw_cpu=$cpu_mb
raw_client mild "$work/direct"
d_raw_mild=$result d_raw_lat=$latency
pw_urge "$work/direct"
d_pw_cli_urge=$result d_pw_cli_cpu=$cpu_mb
pw_mild "$work/direct"
d_pw_cli_mild=$result d_pw_cli_lat=$latency
stop_raw_server

# The raw client makes the pair and waits until portwren's server has opened the far end.
direct_server_run() {
  rm -f "$work/direct"
  "$raw" client "$work/direct" --pty --delay-ms 2500 "$@" >"$work/raw_cli.out" 2>&1 &
  local client=$!
  pids+=("$client")
  wait_for "echo_raw ready" "$work/raw_cli.out"
  start_pw_server "$work/direct"
  wait "$client" || die "raw client against portwren's server: $(cat "$work/raw_cli.out")"
  stop_pw_server
}
direct_server_run --chunk 16000 --bytes "$urge_long" --cap $cap
d_pw_srv_urge=$(sed -n 's/.*mbps=\([0-9.]*\).*/\1/p' "$work/raw_cli.out")
direct_server_run --chunk 64 --bytes $((mild_long * 64)) --lockstep
d_pw_srv_mild=$(sed -n 's/.*round_trips_per_s=\([0-9.]*\).*/\1/p' "$work/raw_cli.out")
d_pw_srv_lat=$(latency_of "$work/raw_cli.out")

echo "over a direct pseudo-terminal pair (raw on the other end):"
row "urge, portwren client, MB/s" "$d_raw_urge" "$d_pw_cli_urge" 0.90 MB/s
row "urge, portwren server, MB/s" "$d_raw_urge" "$d_pw_srv_urge" 0.90 MB/s
row "mild, portwren client, round trips/s" "$d_raw_mild" "$d_pw_cli_mild" 0.80 rt/s
row "mild, portwren server, round trips/s" "$d_raw_mild" "$d_pw_srv_mild" 0.80 rt/s
printf '  %-46s %10.3f %10.3f\n' "CPU s per MB, client + server (portwren client)" "$d_raw_cpu" "$d_pw_cli_cpu"
echo "  mild 64-byte chunks, round-trip latency (us):"
latency_row "raw lock-step pair" "$d_raw_lat"
latency_row "portwren client, raw server" "$d_pw_cli_lat"
latency_row "raw lock-step client, portwren server" "$d_pw_srv_lat"
exit $status
