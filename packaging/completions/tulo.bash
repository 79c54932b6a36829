# Completion of tulo for bash. What there is to complete is read from the command's own --help, so
# that it is never out of step with the executable.

# _tulo_help WORD...: one line for each thing that may follow these words: "command NAME",
# "option NAME" or, for an option that takes a value, "option NAME VALUE".
_tulo_help() {
  command "$@" --help 2>/dev/null | awk '
    /^[A-Z][A-Za-z ]*:$/ { section = $0; next }
    /^[^ ]/ { section = "" }
    section == "Subcommands:" && /^  [a-z]/ { print "command", $1 }
    section == "Options:" && /^  -/ {
      # The explanation begins after two blanks; what stands before it and is no option is a value.
      line = substr($0, 3)
      sub(/  .*/, "", line)
      count = split(line, words, " ")
      names = split(words[1], name, ",")
      for (i = 1; i <= names; i++) print "option", name[i], (count > 1 ? words[2] : "")
    }'
}

_tulo() {
  local current=${COMP_WORDS[COMP_CWORD]} previous="" line word index
  local -a words=("${COMP_WORDS[0]}") candidates=()
  local help
  [ "$COMP_CWORD" -eq 0 ] || previous=${COMP_WORDS[COMP_CWORD - 1]}
  COMPREPLY=()
  help=$(_tulo_help "${words[@]}")
  for ((index = 1; index < COMP_CWORD; index++)); do
    word=${COMP_WORDS[index]}
    if [[ $'\n'$help$'\n' == *$'\n'"command $word"$'\n'* ]]; then
      words+=("$word")
      help=$(_tulo_help "${words[@]}")
    fi
  done
  while read -r line; do
    # shellcheck disable=SC2206  # the fields hold no blanks
    local fields=($line)
    case ${fields[0]:-} in
      option)
        if [ "${fields[1]}" = "$previous" ] && [ -n "${fields[2]:-}" ]; then
          _tulo_value "${fields[2]}" "$current"
          return
        fi
        [[ $current != -* ]] || candidates+=("${fields[1]}")
        ;;
      command) [[ $current == -* ]] || candidates+=("${fields[1]}") ;;
    esac
  done <<<"$help"
  if [ "${#candidates[@]}" -gt 0 ]; then
    mapfile -t COMPREPLY < <(compgen -W "${candidates[*]}" -- "$current")
  else
    _tulo_paths "$current"
  fi
}

# _tulo_value SPECIFICATION TEXT: completes an option's value: one of a set, or a path.
_tulo_value() {
  local choices=$1
  case $choices in
    *\{*\}*)
      choices=${choices#*\{}
      choices=${choices%%\}*}
      mapfile -t COMPREPLY < <(compgen -W "${choices//,/ }" -- "$2")
      ;;
    *) _tulo_paths "$2" ;;
  esac
}

_tulo_paths() {
  compopt -o filenames 2>/dev/null
  mapfile -t COMPREPLY < <(compgen -f -- "$1")
}

complete -F _tulo tulo
