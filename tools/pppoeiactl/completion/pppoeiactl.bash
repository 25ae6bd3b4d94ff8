# bash completion for pppoeiactl(8). The program itself knows what may stand where, bridges and ports included.

_pppoeiactl() {
  local IFS=$'\n'
  COMPREPLY=($("${COMP_WORDS[0]}" --complete "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null))
}

complete -o default -F _pppoeiactl pppoeiactl
