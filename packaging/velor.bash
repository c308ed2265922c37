# SPDX-License-Identifier: MIT
# bash completion for velor. Commands, options and what follows them are read from the help of
# the program itself, so that they are always those of its own version.

_velor() {
  local cur prev words cword
  _init_completion -n : || return
  local help word command= value

  help=$("$1" --help 2>/dev/null)
  local commands
  commands=$(awk 'found && $1 != "" { print $1 } /^Commands/ { found = 1 }' <<<"$help")
  for word in "${words[@]:1:cword-1}"; do
    if grep -qxF -e "$word" <<<"$commands"; then
      command=$word
      help=$("$1" "$command" --help 2>/dev/null)
      break
    fi
  done

  # The name of the value that the option before the cursor takes, and its description.
  value=$(awk -v option="$prev" '/^  -/ {
    count = split($1, names, ",")
    for (i = 1; i <= count; ++i)
      if (names[i] == option && split(substr($0, 3, 28), words, " ") > 1)
        print words[2] " " substr($0, 31)
  }' <<<"$help")
  case $value in
    FORMAT\ * | MODE\ *)
      value=$(sed -E 's/^[A-Z]+//; s/\([^)]*\)//g; s/,| or / /g' <<<"$value")
      COMPREPLY=($(compgen -W "$value" -- "$cur"))
      ;;
    CLIP* | FILE.svg\ *) _filedir ;;
    FILE\ *) _filedir velor ;;
    ?*) ;;
    *)
      if [[ $cur == -* ]]; then
        COMPREPLY=($(compgen -W "$(_parse_help - <<<"$help")" -- "$cur"))
      elif [[ $command ]]; then
        _filedir '@(wav|w64|flac)'
      else
        _filedir velor
        ((cword > 1)) || COMPREPLY+=($(compgen -W "$commands" -- "$cur"))
      fi
      ;;
  esac
} && complete -F _velor velor
