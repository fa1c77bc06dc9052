#!/usr/bin/env bash
# The key loop on a real terminal (tmux) with a socat null-modem pair as the port: an arrow
# key, plain or with Ctrl, does nothing but bring the prompt; Alt+X is two keys (0 and 45, '-')
# as on Windows and does not quit; typed keys print "Got", ESC quits, the exit code is 0.
set -u
exe=$1
. "$(dirname "$0")/tmux_null_modem.sh" keyloop

tmux new-session -d -s "$session" -x 150 -y 60 "$exe $work/a; echo EXIT=\$?; sleep 30"
wait_for "Choose action:"
tmux send-keys -t "$session" Up
wait_for "{1}Again?"
tmux send-keys -t "$session" Home
wait_for "{2}Again?"
tmux send-keys -t "$session" C-Up
wait_for "{3}Again?"
tmux send-keys -t "$session" M-x
wait_for "Got '-'."
wait_for "{5}Again?"
tmux send-keys -t "$session" z
wait_for "Got 'z'."
wait_for "{6}Again?"
tmux send-keys -t "$session" Escape
wait_for "EXIT=0"
screen=$(tmux capture-pane -p -t "$session")
if grep -q "Got 'A'\|Got '\['\|Got 'H'\|Got ';'\|Got 'x'" <<<"$screen"; then fail "an escape sequence leaked as keys"; fi
grep -q "Done    CloseHandle" <<<"$screen" || fail "ESC did not close the port"
echo "arrow, Home and Ctrl+Up bring only the prompt; Alt+X is 0 and '-' and does not quit; z is reported;" \
  "ESC closes the port and exits 0"
cleanup
exit 0
