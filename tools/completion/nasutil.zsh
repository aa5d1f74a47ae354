#compdef nas-plist nas-conf nas-log
# SPDX-License-Identifier: MIT
# Completion of nas-plist, nas-conf and nas-log for zsh: commands, options, the types and truth
# values of nas-plist set; files everywhere else. Commands and options are those that --help shows.

# What stands where the word after `set` and these words is, as in bash's.
_nasutil_in_set() {
  local at=file word
  for word; do
    case $at:$word in
      file:-*) ;;
      file:*) at=path ;;
      path:*) at=type ;;
      type:(dict|array)) at=path ;;
      type:*) at=$word ;;
      *) at=path ;;
    esac
  done
  print -r -- $at
}

_nasutil() {
  local help command place
  local -a commands options
  help=$(_call_program help $words[1] --help 2>/dev/null)
  commands=(${(f)"$(sed -n 's/^  \([a-z]\{1,\}\) .*/\1/p' <<<$help)"})
  options=(${(fu)"$(grep -oE -- '(^|[^a-z-])--?[a-z][a-z-]*' <<<$help | grep -oE -- '-.*')"})
  for ((place = 2; place < CURRENT; place++)); do
    [[ $words[place] == -* ]] || { command=$words[place]; break }
  done
  if [[ $PREFIX == -* ]]; then
    compadd -- $options
  elif [[ -z $command && -n $commands ]]; then
    compadd -- $commands
  elif [[ $command == set ]]; then
    case $(_nasutil_in_set ${words[place + 1,CURRENT - 1]}) in
      file) _files ;;
      path) _message 'path, as in network/servers[2]/name' ;;
      type) compadd -- integer real string boolean date data dict array ;;
      boolean) compadd -- true false ;;
      *) _message value ;;
    esac
  else
    _files
  fi
}

_nasutil "$@"
