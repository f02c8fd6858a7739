# shellcheck shell=bash
# Completion of clientcomm for bash. What there is to complete, the program says in its help.

# _clientcomm_listed [COMMAND]: the commands, or the options of a command.
_clientcomm_listed() {
  if (($# == 0)); then
    "${COMP_WORDS[0]}" --help 2>/dev/null | sed -n '/^Commands:/,/^$/s/^  \([a-z]*\) .*/\1/p'
  else
    "${COMP_WORDS[0]}" "$1" --help 2>/dev/null | sed -n 's/^  \(--[a-z-]*=\{0,1\}\).*/\1/p'
  fi
}

_clientcomm() {
  local current=${COMP_WORDS[COMP_CWORD]} command=${COMP_WORDS[1]}
  COMPREPLY=()
  if ((COMP_CWORD == 1)); then
    mapfile -t COMPREPLY < <(compgen -W "$(_clientcomm_listed) --help --version" -- "$current")
  elif [[ ${COMP_LINE:0:COMP_POINT} =~ --color=([a-z]*)$ ]]; then
    mapfile -t COMPREPLY < <(compgen -W 'auto always never' -- "${BASH_REMATCH[1]}")
  elif [[ $current == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$(_clientcomm_listed "$command")" -- "$current")
    if [[ ${COMPREPLY[0]-} == *= ]]; then compopt -o nospace 2>/dev/null; fi
  elif [[ $command == new ]] && ((COMP_CWORD == 2)); then
    mapfile -t COMPREPLY < <(compgen -W 'host helper' -- "$current")
  elif [[ $command == check || $command == new ]]; then
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -d -- "$current")
  fi
}

complete -F _clientcomm clientcomm
