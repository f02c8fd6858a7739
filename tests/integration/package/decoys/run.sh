#!/usr/bin/env bash
# Runs the host in FOLDER/build with a home of its own, and ends its helper should that still run.
#
#   run.sh FOLDER
set -euo pipefail
folder=$1

export HOME=$folder/home XDG_CONFIG_HOME=$folder/config XDG_RUNTIME_DIR=$folder/runtime
mkdir -m 0700 "$HOME" "$XDG_CONFIG_HOME" "$XDG_RUNTIME_DIR"

# shellcheck disable=SC2317 # called by the trap
end_helper() {
  local link
  for link in /proc/[0-9]*/exe; do
    if [[ $link -ef "$HOME/Helpers/Plain Helper.app/Contents/Linux/Plain Helper" ]]; then
      link=${link%/exe}
      kill "${link#/proc/}" 2>/dev/null || true
    fi
  done
}
trap end_helper EXIT

timeout 120 "$folder/build/Decoy Host.app/Contents/Linux/Decoy Host"
