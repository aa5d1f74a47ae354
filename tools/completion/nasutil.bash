# SPDX-License-Identifier: MIT
# Completion of nas-plist, nas-conf and nas-log for bash: commands, options, the types and truth
# values of nas-plist set; files everywhere else. Commands and options are those that --help shows.

# What stands where the word after `set` and these words is: "path", "type", or the type whose value
# it is.
_nasutil_in_set() {
  local at=file word
  for word; do
    case $at:$word in
      file:-*) ;;
      file:*) at=path ;;
      path:*) at=type ;;
      type:dict | type:array) at=path ;;
      type:*) at=$word ;;
      *) at=path ;;
    esac
  done
  echo "$at"
}

_nasutil() {
  local word=${COMP_WORDS[COMP_CWORD]} help commands command='' place=0 words=''
  COMPREPLY=()
  help=$("${COMP_WORDS[0]}" --help 2>/dev/null) || return
  commands=$(sed -n 's/^  \([a-z]\{1,\}\) .*/\1/p' <<<"$help")
  for ((place = 1; place < COMP_CWORD; place++)); do
    [[ ${COMP_WORDS[place]} == -* ]] || { command=${COMP_WORDS[place]}; break; }
  done
  if [[ $command == set && -n $commands ]]; then
    case $(_nasutil_in_set "${COMP_WORDS[@]:place + 1:COMP_CWORD - place - 1}") in
      type) words='integer real string boolean date data dict array' ;;
      boolean) words='true false' ;;
    esac
  fi
  if [[ $word == -* ]]; then
    words=$(grep -oE -- '(^|[^a-z-])--?[a-z][a-z-]*' <<<"$help" | grep -oE -- '-.*')
  elif [[ -z $command ]]; then
    words=$commands
  fi
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word" | sort -u)
}

complete -o default -F _nasutil nas-plist nas-conf nas-log
