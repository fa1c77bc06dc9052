# Sourced by the real-terminal scripts: a tmux session named after $1 and a socat null-modem pair,
# the port at $work/a and its far end at $work/b, both gone on every way out through fail/cleanup.
work=$(mktemp -d)
session="pw_$1_$$"
fail() { echo "FAIL: $*"; echo "--- screen ---"; tmux capture-pane -p -S -300 -t "$session" 2>/dev/null; cleanup; exit 1; }
cleanup() {
  tmux kill-session -t "$session" 2>/dev/null
  [ -n "${socat_pid:-}" ] && kill "$socat_pid" 2>/dev/null
  rm -rf "$work"
}
for tool in tmux socat; do
  command -v "$tool" >/dev/null || { echo "FAIL: $tool is not installed (make test installs it)"; exit 1; }
done

socat pty,raw,echo=0,link="$work/a" pty,raw,echo=0,link="$work/b" 2>/dev/null &
socat_pid=$!
for _ in $(seq 50); do [ -e "$work/a" ] && [ -e "$work/b" ] && break; sleep 0.1; done
[ -e "$work/a" ] || fail "socat made no pseudo-terminal pair"

# Waits until the screen and its history show the text (fixed string) `count` times (default 1),
# for up to 10 seconds.
wait_for() {
  local count=${2:-1}
  for _ in $(seq 100); do
    [ "$(tmux capture-pane -p -S -300 -t "$session" | grep -cF -- "$1")" -ge "$count" ] && return 0
    sleep 0.1
  done
  fail "screen never showed: $1 ($count times)"
}
key() { tmux send-keys -t "$session" -l "$1"; }
