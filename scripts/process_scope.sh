# Sourced by the scripts that start helper processes: a work folder and the processes started,
# all stopped and removed on every way out. Append each started pid to `pids`.
work=$(mktemp -d)
pids=()
cleanup() {
  exec 3>&- 4>&- 2>/dev/null
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null; done
  for pid in "${pids[@]}"; do wait "$pid" 2>/dev/null; done
  rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 130' INT TERM
