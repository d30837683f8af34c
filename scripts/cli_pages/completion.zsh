#compdef @PROGRAM@
# Completes the command line of @PROGRAM@ in zsh. Made by scripts/make_cli_pages.py.

_@PROGRAM@_bags() { _files -g '*.(kbag|kbin)' }

# The topics of the recordings on the line; none of those that cannot be read.
_@PROGRAM@_topics() {
  local program=${(Q)words[1]} bag
  local -a topics limit
  [[ $program == '~/'* ]] && program=$HOME${program#\~}
  (( $+commands[timeout] )) && limit=(timeout 5)
  for bag in "${(@)line[2,-1]}"; do
    bag=${(Q)bag}
    if [[ $bag == '~/'* ]]; then
      bag=$HOME${bag#\~}
    elif [[ $bag =~ '^\$\{?([A-Za-z_][A-Za-z0-9_]*)\}?(/.*)$' ]]; then
      bag=${(P)match[1]}$match[2]
    fi
    [[ $bag == /* ]] || bag=./$bag
    [[ -f $bag ]] || continue
    topics+=("${(@f)$(@TOPICS@)}")
  done
  local expl given=("${(@Q)words[1,CURRENT-1]}" "${(@Q)words[CURRENT+1,-1]}")
  topics=(${(u)topics:|given})
  _wanted topics expl 'topic' compadd -a topics
}

# Prints the command of the line, its first word that is neither an option nor a value of one.
_@PROGRAM@_command() {
  local word left=0
  for word in "${(@)words[2,CURRENT-1]}"; do
    case $word in
@VALUE_COUNTS@
      -[^0-9]*) left=0 ;;
      *)
        if (( left == 0 )); then
          print -r -- $word
          return
        fi
        (( --left ))
        ;;
    esac
  done
}

_@PROGRAM@() {
  local curcontext=$curcontext
  local -a line match commands options
  typeset -A opt_args
  commands=(
@COMMANDS@
  )
  case $(_@PROGRAM@_command) in
@OPTIONS@
  esac
  # An option ends the values of the one before it: behind "-", each has but one.
  [[ $words[CURRENT] == -* ]] && options=("${(@)options/:\*-\*:/:}")
  _arguments -s -S : "$options[@]" "1:command:{ _describe -t commands command commands }" "$arguments[@]"
}

_@PROGRAM@ "$@"
