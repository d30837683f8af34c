# Completes the command line of @PROGRAM@ in bash. Made by scripts/make_cli_pages.py.

# The options of a command, and the names and kinds of its arguments; "" is no command yet.
_@PROGRAM@_command() {
    options=() arguments=() argument_kinds=() last_repeats=
    case $1 in
@COMMANDS@
    esac
}

# What follows an option of a command ("COMMAND OPTION"), and what cannot stand beside it.
_@PROGRAM@_option() {
    values=() choices=() excludes=() last_repeats= may_repeat=
    case $1 in
@OPTIONS@
    esac
}

# Takes COMP_WORDS to words without breaks at "=" and ":", and the cursor to cword and cur.
_@PROGRAM@_split() {
    local rest=$COMP_LINE blank word at=0 begin=0 i
    words=() cword=0
    for ((i = 0; i < ${#COMP_WORDS[@]}; ++i)); do
        word=${COMP_WORDS[i]}
        blank=${rest%%[^[:space:]]*}
        if [[ $i -gt 0 && -z $blank && ($word == [=:]* || ${COMP_WORDS[i - 1]} == *[=:]) ]]; then
            words[${#words[@]} - 1]+=$word
        else
            begin=$((at + ${#blank}))
            words+=("$word")
        fi
        at=$((at + ${#blank} + ${#word}))
        rest=${COMP_LINE:at}
        if [[ $i -eq $COMP_CWORD ]]; then
            cword=$((${#words[@]} - 1))
            cur=
            ((COMP_POINT <= begin)) || cur=${COMP_LINE:begin:COMP_POINT - begin}
        fi
    done
}

# Sets REPLY to a word as the command would get it. Runs nothing that stands in it.
_@PROGRAM@_unquote() {
    local text=$1 quote= char i
    REPLY=
    if [[ $text == '~/'* ]]; then
        REPLY=$HOME
        text=${text:1}
    elif [[ $text =~ ^\$\{?([A-Za-z_][A-Za-z0-9_]*)\}?(/.*)$ ]]; then
        REPLY=${!BASH_REMATCH[1]}
        text=${BASH_REMATCH[2]}
    fi
    for ((i = 0; i < ${#text}; ++i)); do
        char=${text:i:1}
        if [[ $quote == "'" ]]; then
            if [[ $char == "'" ]]; then quote=; else REPLY+=$char; fi
        elif [[ $char == "\\" ]]; then
            ((++i))
            REPLY+=${text:i:1}
        elif [[ $char == '"' ]]; then
            if [[ $quote ]]; then quote=; else quote='"'; fi
        elif [[ -z $quote && $char == "'" ]]; then
            quote="'"
        else
            REPLY+=$char
        fi
    done
}

_@PROGRAM@_contains() {
    local wanted=$1 word
    shift
    for word; do
        [[ $word != "$wanted" ]] || return 0
    done
    return 1
}

# Prints the topics of the recordings on the line, one a line; nothing for those that cannot be read.
_@PROGRAM@_topics() {
    local program bag limit=()
    _@PROGRAM@_unquote "${words[0]}"
    program=$REPLY
    if type -P timeout >/dev/null; then limit=(timeout 5); fi
    for bag in "${bags[@]}"; do
        _@PROGRAM@_unquote "$bag"
        [[ $REPLY == /* ]] || REPLY=./$REPLY
        [[ -f $REPLY ]] || continue
        @TOPICS@
    done
}

# Adds the words that begin with cur to COMPREPLY.
_@PROGRAM@_add() {
    local word
    _@PROGRAM@_unquote "$cur"
    for word; do
        [[ $word == "$REPLY"* ]] || continue
        [[ $cur == [\"\']* ]] || printf -v word %q "$word"
        COMPREPLY+=("$word")
    done
}

_@PROGRAM@_add_topics() {
    local topic topics=()
    while IFS= read -r topic; do
        _@PROGRAM@_contains "$topic" "${given_topics[@]}" || topics+=("$topic")
    done < <(_@PROGRAM@_topics)
    _@PROGRAM@_add "${topics[@]}"
}

# True where the option, or argument, $1 cannot stand beside what is given.
_@PROGRAM@_is_excluded() {
    local values choices excludes last_repeats may_repeat other
    _@PROGRAM@_option "$command $1"
    for other in "${excludes[@]}"; do
        if _@PROGRAM@_contains "$other" "${given[@]}"; then return 0; fi
    done
    return 1
}

_@PROGRAM@_add_options() {
    local options arguments argument_kinds values choices excludes last_repeats may_repeat option
    _@PROGRAM@_command "$command"
    for option in "${options[@]}"; do
        _@PROGRAM@_option "$command $option"
        if [[ -z $may_repeat ]] && _@PROGRAM@_contains "$option" "${given[@]}"; then continue; fi
        _@PROGRAM@_is_excluded "$option" || _@PROGRAM@_add "$option"
    done
}

# Adds the files, and folders on the way to them, that compgen finds with these options.
_@PROGRAM@_add_files() {
    local found
    compopt -o filenames 2>/dev/null
    _@PROGRAM@_unquote "$cur"
    [[ $cur != '~/'* ]] || REPLY=$cur
    mapfile -t found < <(compgen "$@" -- "$REPLY")
    COMPREPLY+=("${found[@]}")
}

# Adds what fits, by its kind. Where nothing is added, readline goes on with all files.
_@PROGRAM@_add_kind() {
    case $1 in
        command) _@PROGRAM@_add @COMMAND_NAMES@ ;;
        option) _@PROGRAM@_add_options ;;
        choice) _@PROGRAM@_add "${expected_choices[@]}" ;;
        topic) _@PROGRAM@_add_topics ;;
        directory) _@PROGRAM@_add_files -d ;;
        bag)
            _@PROGRAM@_add_files -f -X '!*.kbag'
            _@PROGRAM@_add_files -f -X '!*.kbin'
            [[ ${#COMPREPLY[@]} -eq 0 ]] || _@PROGRAM@_add_files -d
            ;;
    esac
    case $1 in
        bag | file | new_file) ;;
        *) compopt +o default +o bashdefault 2>/dev/null ;;
    esac
}

# Walks through the words, as the program does, and finds out what is expected at the cursor.
_@PROGRAM@_walk() {
    local options arguments argument_kinds values choices excludes last_repeats may_repeat
    local pending=() pending_repeats= pending_choices=() position=0 only_words= word kind name i
    for ((i = 1; i < ${#words[@]}; ++i)); do
        word=${words[i]}
        ((i != cword)) || word=$cur
        name=
        if [[ -z $only_words && $word == -* && $word != -[0-9]* ]]; then name=${word%%=*}; fi
        if [[ ${#pending[@]} -gt 0 && (-z $name || -z "@OPTIONS_ANYWHERE@") ]]; then
            kind=${pending[0]}
            if ((i == cword)); then
                expected=$kind
                expected_choices=("${pending_choices[@]}")
            elif [[ $kind == topic ]]; then
                _@PROGRAM@_unquote "$word"
                given_topics+=("$REPLY")
            fi
            [[ $pending_repeats && ${#pending[@]} -eq 1 ]] || pending=("${pending[@]:1}")
        elif [[ $name == -- ]] && ((i != cword)); then
            only_words=yes
        elif [[ $name ]]; then
            [[ -z "@OPTIONS_ANYWHERE@" || $name != -[!-]?* ]] || name=-$name
            pending=()
            _@PROGRAM@_option "$command $name"
            if ((i != cword)); then
                given+=("$name")
                if [[ $word != *=* ]]; then
                    pending=("${values[@]}") pending_repeats=$last_repeats pending_choices=("${choices[@]}")
                fi
            elif [[ $word == *=* ]]; then
                expected=${values[0]:-none} expected_choices=("${choices[@]}")
                cur=${word#*=} before=${word%%=*}=
            else
                expected=option
            fi
        elif [[ -z $command ]]; then
            ((i != cword)) || { expected=command && return; }
            command=$word
        else
            pending=()
            _@PROGRAM@_command "$command"
            if [[ $last_repeats ]] && ((position >= ${#arguments[@]})); then
                position=$((${#arguments[@]} - 1))
            fi
            kind=${argument_kinds[position]:-option}
            name=${arguments[position]:-}
            if ((i == cword)); then
                expected=$kind
                if [[ $name ]] && _@PROGRAM@_is_excluded "$name"; then expected=option; fi
            else
                [[ -z $name ]] || given+=("$name")
                [[ $kind != bag ]] || bags+=("$word")
            fi
            position=$((position + 1))
        fi
    done
}

_@PROGRAM@() {
    local words cword=0 cur= before= command= expected=option expected_choices=() given=() given_topics=() bags=()
    local REPLY whole typed i
    COMPREPLY=()
    _@PROGRAM@_split
    whole=$cur
    _@PROGRAM@_walk
    _@PROGRAM@_add_kind "$expected"
    # readline replaces only what stands behind the last "=" or ":".
    typed=${COMP_WORDS[COMP_CWORD]}
    [[ $typed != [=:]* ]] || typed=
    typed=${whole%"$typed"}
    for i in "${!COMPREPLY[@]}"; do
        COMPREPLY[i]=$before${COMPREPLY[i]}
        [[ $typed != *[=:] ]] || COMPREPLY[i]=${COMPREPLY[i]#"$typed"}
    done
}

complete -o bashdefault -o default -F _@PROGRAM@ @PROGRAM@
