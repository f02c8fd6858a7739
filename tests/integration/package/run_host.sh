#!/usr/bin/env bash
# Runs the commands in FOLDER/project/SCRIPT with a home of their own. Before the last line they have
# a host running in the background; the last line shows its helper, once that runs. Then all commands
# of the script LOOK must succeed too. Ends both processes.
#
#   run_host.sh FOLDER SCRIPT LOOK
set -euo pipefail
folder=$1 script=$2 look=$3
seconds_to_wait=60

export HOME=$folder/home XDG_CONFIG_HOME=$folder/config XDG_RUNTIME_DIR=$folder/runtime
mkdir -m 0700 "$HOME" "$XDG_CONFIG_HOME" "$XDG_RUNTIME_DIR"

# The processes that run the installed helper.
installed_processes() {
  local link executable
  for executable in "$HOME"/.local/lib/*/*.app/Contents/Linux/*; do
    for link in /proc/[0-9]*/exe; do
      if [[ $link -ef $executable ]]; then
        link=${link%/exe}
        echo "${link#/proc/}"
      fi
    done
  done
}

# shellcheck disable=SC2317 # called by the trap
end_all() {
  local host process
  for host in $(jobs -p); do
    kill "$host" 2>/dev/null || true
    wait "$host" 2>/dev/null || true
  done
  for process in $(installed_processes); do
    kill "$process" 2>/dev/null || true
    while [[ -e /proc/$process ]] && ((SECONDS < deadline + 10)); do sleep 0.1; done
  done
}
deadline=$seconds_to_wait
trap end_all EXIT

cd "$folder/project"
head -n -1 "$script" >prepare.sh
show_helper=$(tail -n 1 "$script")
# shellcheck source=/dev/null
source ./prepare.sh

deadline=$((SECONDS + seconds_to_wait))
while ((SECONDS < deadline)); do
  process=$(installed_processes)
  if [[ $process ]] && eval "$show_helper" | grep "^$process " &&
    bash -eux -o pipefail "$look" >look.log 2>&1; then
    exit 0
  fi
  sleep 0.1
done
echo "no helper runs, or it cannot be seen; the host:"
jobs -l
if [[ -e look.log ]]; then cat look.log; fi
exit 1
