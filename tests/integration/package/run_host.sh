#!/usr/bin/env bash
# Runs the commands in FOLDER/project/SCRIPT with a home of their own. Before the last line they have
# a host running in the background; the last line shows its helper, once that runs. Ends both.
#
#   run_host.sh FOLDER SCRIPT
set -euo pipefail
folder=$1 script=$2
attempts=600 # of 0.1 s

export HOME=$folder/home XDG_CONFIG_HOME=$folder/config XDG_RUNTIME_DIR=$folder/runtime
mkdir -m 0700 "$HOME" "$XDG_CONFIG_HOME" "$XDG_RUNTIME_DIR"

# The processes whose executable is below the private home.
installed_processes() {
  local link
  for link in /proc/[0-9]*/exe; do
    if [[ $(readlink "$link" 2>/dev/null) == "$HOME"/* ]]; then
      link=${link%/exe}
      echo "${link#/proc/}"
    fi
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
    while [[ -e /proc/$process ]] && ((attempts-- > 0)); do sleep 0.1; done
  done
}
trap end_all EXIT

cd "$folder/project"
head -n -1 "$script" >prepare.sh
show_helper=$(tail -n 1 "$script")
# shellcheck source=/dev/null
source ./prepare.sh

while ((attempts-- > 0)); do
  process=$(installed_processes)
  if [[ $process ]] && eval "$show_helper" | grep "^$process "; then exit 0; fi
  sleep 0.1
done
echo "no helper runs; the host:"
jobs -l
exit 1
