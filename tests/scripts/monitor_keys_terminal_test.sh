#!/usr/bin/env bash
# The monitor and reader keys on a real terminal (tmux) with a socat null-modem pair as the port:
# E reports bytes from the far end while the keys go on, e stops it, # reads what waits and
# asks before stopping, and ESC with both threads running still ends the program with 0.
set -u
exe=$1
. "$(dirname "$0")/tmux_null_modem.sh" monitor

tmux new-session -d -s "$session" -x 150 -y 60 "$exe $work/a -b 5; echo EXIT=\$?; sleep 30"
tmux set-option -t "$session" history-limit 2000 >/dev/null
wait_for "Choose action:"
key E
wait_for "====Starting WaitCommEvent(mask=0x1D)..."
printf hello >"$work/b"
wait_for "====New events: EV_RXCHAR"
wait_for "cbInQue=5(not cleared) , cbOutQue=0"
wait_for "====Starting WaitCommEvent(mask=0x1D)..." 2
key e
wait_for "WaitCommEvent thread quitting confirmed."
key '#'
wait_for "ReadCom-thread created success."
wait_for "ReadComThread: Got 5 bytes."
key '#'
wait_for "Stop ReadCom thread?(y/N)"
key y
wait_for "ReadComThread: ReadFile() async fail after CancelIO. WinErr=995(ERROR_OPERATION_ABORTED)"
wait_for "ReadComThread: Got error."
key E
key '#'
wait_for "ReadCom-thread created success." 2
wait_for "====Starting WaitCommEvent(mask=0x1D)..." 3
tmux send-keys -t "$session" Escape
wait_for "EXIT=0"
echo "E reports the far end's bytes, e stops it, # reads and stops after asking; ESC with both running exits 0"
cleanup
exit 0
