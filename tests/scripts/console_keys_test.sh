#!/usr/bin/env bash
# Console keys on a real terminal: runs tests/tools/key_echo in a detached tmux session, types
# keys into it as a user would (tmux send-keys), and checks the codes it prints, the edited line
# read, and that the terminal mode is the same after a normal end and after Ctrl+C.
# Arguments: <portwren binary> <build/native/tests dir>; key_echo is in the latter.
set -u

tests_dir=${2:?usage: console_keys_test.sh <portwren binary> <tests build dir>}
key_echo=$tests_dir/key_echo
timeout_s=20  # per step; shared machines can be slow

fail() {
  echo "FAIL: $*"
  if [ -n "${session:-}" ]; then
    echo "---- terminal contents ----"
    capture
    echo "---------------------------"
  fi
  exit 1
}

command -v tmux >/dev/null || fail "tmux is not installed (the Makefile's deps step installs it)"
[ -x "$key_echo" ] || fail "$key_echo is missing: build the key_echo target of tests/CMakeLists.txt"

work=$(mktemp -d)
socket=$work/tmux.sock
session=""
tm() { tmux -S "$socket" -f /dev/null "$@"; }
cleanup() {
  tm kill-server 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT

capture() { tm capture-pane -p -J -S - -t "$session" 2>/dev/null; }

# Polls the pane until the pattern (grep -E) has appeared `count` times.
wait_for() {
  local pattern=$1 what=$2 count=${3:-1}
  local deadline=$((SECONDS + timeout_s))
  until [ "$(capture | grep -cE -- "$pattern")" -ge "$count" ]; do
    ((SECONDS < deadline)) || fail "timed out after ${timeout_s}s waiting for $what"
    sleep 0.1
  done
}

# Single-key mode is on once the terminal has -icanon; keys typed before that would be
# line-edited by the terminal itself.
wait_for_key_mode() {
  local deadline=$((SECONDS + timeout_s))
  until stty -F "$pane_tty" -a 2>/dev/null | grep -qw -- -icanon; do
    ((SECONDS < deadline)) || fail "timed out waiting for single-key mode on $pane_tty ($1)"
    sleep 0.1
  done
}

# The pane's script: key_echo twice (the second one ends by Ctrl+C), with the terminal mode
# recorded around both. Not an interactive shell, so nothing but key_echo touches the mode.
cat >"$work/pane.sh" <<EOF
trap ':' INT
stty -g >"$work/before"
"$key_echo"
echo "first exit=\$?"
stty -g >"$work/after_first"
"$key_echo"
echo "second exit=\$?"
stty -g >"$work/after_second"
echo "pane done"
exec sleep 600
EOF

session=keys
tm new-session -d -s "$session" -x 120 -y 60 "bash $work/pane.sh" || fail "tmux could not start a session"
pane_tty=$(tm display-message -p -t "$session" '#{pane_tty}')

# ---- first run: keys, an edited line, the end by 'q' ----
wait_for '^key_echo ready$' "key_echo to start"
wait_for_key_mode "first run"

tm send-keys -t "$session" Up Down Right Left Home End F1 F12
wait_for '^key 224 134$' "the cursor and function keys"

# With Ctrl and Alt, as the Windows console gives them; Alt+X is 0 and X's scan code.
tm send-keys -t "$session" C-Up C-DC M-Left M-x M-1
wait_for '^key 0 120$' "the keys with Ctrl and Alt"

# A lone ESC: nothing follows it, so only the short wait can make it a key.
tm send-keys -t "$session" Escape
wait_for '^key 27$' "a lone ESC"

tm send-keys -t "$session" Enter
wait_for '^key 13$' "Enter"

tm send-keys -t "$session" l
tm send-keys -t "$session" 1 2 x BSpace 3 Enter
wait_for '^line <' "the line read"

tm send-keys -t "$session" q
wait_for '^first exit=' "key_echo to end on q"

expected=$'key 224 72\nkey 224 80\nkey 224 77\nkey 224 75\nkey 224 71\nkey 224 79\nkey 0 59\nkey 224 134\n'
expected+=$'key 224 141\nkey 224 147\nkey 0 155\nkey 0 45\nkey 0 120\n'
expected+=$'key 27\nkey 13\nline <123>\nkey 113'
got=$(capture | grep -E '^(key|line) ')
[ "$got" = "$expected" ] || fail "key codes differ"$'\n'"expected:"$'\n'"$expected"$'\n'"got:"$'\n'"$got"
capture | grep -qx '123' || fail "the line read did not show the edited text 123"
capture | grep -qx 'first exit=0' || fail "key_echo did not end normally"

[ -s "$work/before" ] && [ -s "$work/after_first" ] || fail "terminal modes were not recorded"
cmp -s "$work/before" "$work/after_first" ||
  fail "terminal mode not restored after a normal end: $(cat "$work/before") vs $(cat "$work/after_first")"

# ---- second run: Ctrl+C ends it and the mode comes back ----
wait_for '^key_echo ready$' "the second key_echo to start" 2
wait_for_key_mode "second run"
tm send-keys -t "$session" C-c
wait_for '^second exit=' "Ctrl+C to end key_echo"
capture | grep -qx 'second exit=130' || fail "Ctrl+C did not end key_echo by SIGINT (want exit 130)"
wait_for '^pane done$' "the pane script"
cmp -s "$work/before" "$work/after_second" ||
  fail "terminal mode not restored after Ctrl+C: $(cat "$work/before") vs $(cat "$work/after_second")"

echo "console keys on a tmux terminal: arrows, Home, End, F1, F12, Ctrl and Alt forms, lone ESC, Enter, an edited" \
  "line read, and the terminal mode restored after a normal end and after Ctrl+C: all as expected"
