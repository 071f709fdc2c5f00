# Completion of korvex for bash: the tool itself says what may stand where.
# shellcheck shell=bash

# A word of the command line as the shell will pass it on, as far as quotes and backslashes go.
_korvex_unquote() {
  case $1 in
    \'*) REPLY=${1#\'} REPLY=${REPLY%\'} ;;
    \"*) REPLY=${1#\"} REPLY=${REPLY%\"} ;;
    *) REPLY=${1//\\/} ;;
  esac
}

_korvex() {
  local cur=${COMP_WORDS[COMP_CWORD]} words=() joined='' prefix='' kind line word begun REPLY
  COMPREPLY=()

  # bash takes --option=VALUE for three words.
  for word in "${COMP_WORDS[@]:1:COMP_CWORD}"; do
    _korvex_unquote "$word"
    if ((${#words[@]})) && [[ $word == = || $joined ]]; then
      words[-1]+=$REPLY
      [[ $word == = ]] && joined=yes prefix=${words[-1]} || joined=''
    else
      words+=("$REPLY") joined=''
    fi
  done
  [[ $prefix && ${words[-1]} == "$prefix"* ]] || prefix=''
  [[ $cur == = ]] && cur=''
  _korvex_unquote "$cur"
  begun=$REPLY

  {
    IFS= read -r kind
    while IFS=$'\t' read -r line _; do
      line=${line#"$prefix"}
      [[ $line == "$begun"* ]] || continue
      [[ $cur == [\'\"]* ]] || printf -v line '%q' "$line"
      COMPREPLY+=("$line")
    done
  } < <("${COMP_WORDS[0]}" --complete "${words[@]}" 2>/dev/null)

  case $kind in
    files | folders)
      compopt -o filenames 2>/dev/null
      [[ $kind == files ]] && kind=-f || kind=-d
      mapfile -t COMPREPLY < <(compgen "$kind" -- "$cur")
      ;;
    commands) mapfile -t COMPREPLY < <(compgen -c -- "$cur") ;;
  esac
}

complete -F _korvex korvex
