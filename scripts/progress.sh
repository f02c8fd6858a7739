# shellcheck shell=bash
# Shows how far a long command is. Sourced by other scripts, not run.
set -euo pipefail

# Where the output is not a terminal: the seconds between two lines of progress.
progress_interval=${CLIENTCOMM_PROGRESS_INTERVAL:-5}

# with_progress COMMAND [ARGUMENT...]
#
# Runs the command and shows the last line that it wrote, with the seconds passed: on a terminal in one
# line that changes, elsewhere in a line every few seconds. Everything that it wrote follows when it
# fails. Returns its exit status.
with_progress() {
  run_and_report "$@" | show_progress "$SECONDS"
}

# Writes the command's output and errors, and then its exit status on a line of its own, without a line
# break.
run_and_report() {
  local status=0
  "$@" </dev/null 2>&1 || status=$?
  printf '\n%s' "$status"
}

# Reads the output of run_and_report for a command that began at the second STARTED.
show_progress() {
  local started=$1 line='' part received shown=$SECONDS last='' columns=0
  local -a lines=()
  if [[ -t 1 && ${TERM:-dumb} != dumb ]]; then columns=$(tput cols 2>/dev/null || echo 80); fi
  while true; do
    received=0
    # Ends after a second without a whole line: the seconds shown go on.
    IFS= read -r -t 1 part || received=$?
    line+=$part
    if ((received == 0)); then
      lines+=("$line")
      # Once the command tells how far it is, lines that do not are passed over.
      if [[ $line == '['*'%]'* || ($last != '['*'%]'* && -n ${line// /}) ]]; then last=$line; fi
      line=''
    elif ((received <= 128)); then
      break
    fi
    show_last_line
  done
  ((columns == 0)) || printf '\r\033[K'
  if ((line != 0)); then print_all_output >&2; fi
  return "$line"
}

# Shows `last`, of the variables of show_progress.
# shellcheck disable=SC2154  # they are its caller's
show_last_line() {
  local text
  printf -v text '    %3d s  %s' "$((SECONDS - started))" "${last//$'\r'/}"
  if ((columns > 0)); then
    printf '\r\033[K%s' "${text:0:columns-1}"
  elif ((SECONDS - shown >= progress_interval)); then
    printf '%s\n' "$text"
    shown=$SECONDS
  fi
}

# Prints `lines`, of the variables of show_progress.
print_all_output() {
  # The line break before the status completes the last line, or adds an empty one.
  [[ -n ${lines[-1]} ]] || unset 'lines[-1]'
  ((${#lines[@]} == 0)) || printf '%s\n' "${lines[@]}"
}

# Translates what apt reports by APT::Status-Fd, "kind:item:percent:text", into lines of progress.
apt_progress() {
  sed --unbuffered -E 's/^(dl|pm)status:[^:]*:([0-9]+)[^:]*:(.*)/[\2%] \3/'
}
