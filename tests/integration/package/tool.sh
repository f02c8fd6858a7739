#!/usr/bin/env bash
# Uses the command in the installation PREFIX as its page says: writes, builds and runs a host and a
# helper in FOLDER, with a home of their own. Also looks at the manual page and at the completion.
#
#   tool.sh PREFIX FOLDER
set -euo pipefail
prefix=$1 folder=$2
clientcomm=$prefix/bin/clientcomm
export HOME=$folder/home XDG_CONFIG_HOME=$folder/config XDG_RUNTIME_DIR=$folder/runtime
mkdir -m 0700 "$HOME" "$XDG_CONFIG_HOME" "$XDG_RUNTIME_DIR"
# Others of the same name may run beside this test.
identifier=com.example.new$$
hosts=() watchers=()

fail() {
  echo "$*" >&2
  exit 1
}

# shellcheck disable=SC2317 # called by the trap
end_all() {
  local host helper
  for host in "${hosts[@]}" "${watchers[@]}"; do
    kill "$host" 2>/dev/null || true
    wait "$host" 2>/dev/null || true
  done
  for helper in "$identifier.host.helper" "$identifier.helper"; do
    "$clientcomm" call "$helper" TQHPHelperControl exitHelper:productVersion: P100 1.0 >/dev/null || true
  done
}
trap end_all EXIT

expect() {
  [[ $1 == "$2" ]] || fail "expected \"$2\", not \"$1\""
}

build() {
  (cd "$1" && shift && cmake -B build "$@" && cmake --build build)
}

# wait_for TEXT FILE: until a line of the file has the text.
wait_for() {
  local deadline=$((SECONDS + 60))
  until grep -qF -e "$1" "$2"; do
    ((SECONDS < deadline)) || fail "\"$1\" does not come; there is: $(cat "$2")"
    sleep 0.1
  done
}

# look_at HELPER: what ps and watch show of it.
look_at() {
  local watched=$folder/watched applications
  applications=$("$clientcomm" ps)
  grep -F "$1 " <<<"$applications" || fail "ps does not list $1, but: $applications"
  true >"$watched"  # wait_for reads it at once
  "$clientcomm" watch "$1" >"$watched" &
  watchers+=("$!")
  wait_for "Watching $1" "$watched"
  expect "$("$clientcomm" call "$1" Greeter greet: you --wait)" "Hello, you"
  wait_for 'Greeter greet: ("you")  -> "Hello, you"' "$watched"
  kill "${watchers[-1]}"
  wait "${watchers[-1]}" || true
}

# run_host NAME HELPER...: runs the host until it has printed what its helper says, and looks at that.
run_host() {
  local name=$1 output=$folder/output deadline=$((SECONDS + 60))
  "build/$name.app/Contents/Linux/$name" >"$output" &
  hosts+=("$!")
  until grep -q '^it says' "$output"; do
    if ((SECONDS >= deadline)) || ! kill -0 "${hosts[-1]}"; then
      fail "the host does not reach its helper"
    fi
    sleep 0.1
  done
  expect "$(cat "$output")" $'the helper: status 0\nit says: Hello, host'
  "$clientcomm" check "build/$name.app"
  look_at "$2"
}

# --- The command. ---

[[ -L $clientcomm ]] || fail "$clientcomm is no link"
"$clientcomm" --version | grep -q '^clientcomm '

# --- The projects. ---

"$clientcomm" new helper "$folder/helper" --identifier="$identifier.helper"
"$clientcomm" new host "$folder/host" --identifier="$identifier.host" --name "New Host"
status=0
"$clientcomm" new host "$folder/host" 2>"$folder/errors" || status=$?
expect "$status $(cat "$folder/errors")" "1 clientcomm new: $folder/host is not empty"
build "$folder/helper"
build "$folder/host"
cd "$folder/host"
run_host "New Host" "$identifier.host.helper"
# The same host with the ready-made helper.
kill "${hosts[0]}"
wait "${hosts[0]}" || fail "the host does not end as asked to"
build "$folder/host" "-DHELPER_BUNDLE=$folder/helper/build/My Helper.app"
run_host "New Host" "$identifier.helper"

# --- The manual page. ---

page=$prefix/share/man/man1/clientcomm.1
if command -v groff >/dev/null; then
  expect "$(LC_ALL=C groff -man -Tascii -ww -z "$page" 2>&1)" ""
fi

# --- The completion. ---

# completions WORD...: what is offered for the last word, in one line.
completions() {
  COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)) COMP_LINE="$*"
  COMP_POINT=${#COMP_LINE}
  _clientcomm
  echo "${COMPREPLY[*]}"
}
# shellcheck source=/dev/null
source "$prefix/share/bash-completion/completions/clientcomm"
expect "$(completions "$clientcomm" ch)" check
expect "$(completions "$clientcomm" --v)" --version
expect "$(completions "$clientcomm" call --wa)" --wait
expect "$(completions "$clientcomm" call --tim)" --timeout=
expect "$(completions "$clientcomm" call --color=a)" "auto always"
expect "$(completions "$clientcomm" new he)" helper
expect "$(completions "$clientcomm" check "$folder/hel")" "$folder/helper"
