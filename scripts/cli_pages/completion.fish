# Completes the command line of @PROGRAM@ in fish. Made by scripts/make_cli_pages.py.

# Prints how many words follow an option of a command ("COMMAND OPTION"), and of which kinds. "+": all
# words up to the next option.
function __@PROGRAM@_values
    switch $argv[1]
@VALUES@
    end
end

# Prints the kinds of the arguments of a command. "+": the last one may be repeated.
function __@PROGRAM@_arguments
    switch $argv[1]
@ARGUMENTS@
    end
end

# Walks through the words before the cursor, as the program does. Prints what is expected there, then the
# command ("-": none yet), then the words given: options, KIND:WORD of all others.
function __@PROGRAM@_walk
    set -l tokens (commandline -opc)
    set -l command -
    set -l pending
    set -l given
    set -l position 0
    for word in $tokens[2..]
        if test (count $pending) -gt 0; and not string match -qr -- '@END_OF_VALUES@' $word
            set -a given $pending[1]:$word
            test "$pending[2]" = +; or set -e pending[1]
        else if string match -qr -- '^-[^0-9]' $word
            set pending
            set -l parts (string split -m 1 = -- $word)
            set -a given $parts[1]
            test (count $parts) -gt 1; or set pending (__@PROGRAM@_values "$command $parts[1]")
        else if test $command = -
            set command $word
        else
            set -l kinds (__@PROGRAM@_arguments $command)
            set position (math $position + 1)
            set -l kind $kinds[$position]
            if test "$kinds[-1]" = +; and test $position -ge (count $kinds)
                set kind $kinds[-2]
            end
            test -z "$kind"; or set -a given $kind:$word
        end
    end
    if test (count $pending) -gt 0
        echo $pending[1]
    else if test $command = -
        echo command
    else
        set -l kinds (__@PROGRAM@_arguments $command)
        set position (math $position + 1)
        if test "$kinds[-1]" = +; and test $position -ge (count $kinds)
            echo $kinds[-2]
        else if test $position -le (count $kinds)
            echo $kinds[$position]
        else
            echo option
        end
    end
    echo $command
    string join -- \n $given
end

# True where a word of this kind is expected, and none of the named options is given.
function __@PROGRAM@_expects
    set -l state (__@PROGRAM@_walk)
    test "$state[1]" = $argv[1]; or return 1
    for word in $argv[2..]
        not contains -- $word $state[3..]; or return 1
    end
end

# __@PROGRAM@_offers COMMAND... -- WORD...: true behind one of the commands where none of the words is given.
function __@PROGRAM@_offers
    set -l state (__@PROGRAM@_walk)
    set -l split (contains -i -- -- $argv)
    contains -- $state[2] $argv[1..(math $split - 1)]; or return 1
    for word in $argv[(math $split + 1)..]
        if string match -q '*:' -- $word
            not string match -q -- "$word*" $state[3..]; or return 1
        else
            not contains -- $word $state[3..]; or return 1
        end
    end
end

# Prints the topics of the recordings on the line; none of those that cannot be read.
function __@PROGRAM@_topics
    set -l program (commandline -opc)[1]
    set -l state (__@PROGRAM@_walk)
    set program (string replace -r '^~/' "$HOME/" -- $program)
    set -l limit
    command -q timeout; and set limit timeout 5
    for word in $state[3..]
        string match -q 'bag:*' -- $word; or continue
        set -l bag (string replace -r '^~/' "$HOME/" -- (string sub -s 5 -- $word))
        string match -q '/*' -- $bag; or set bag ./$bag
        test -f $bag; or continue
        @TOPICS@
    end | while read -l topic
        contains -- "topic:$topic" $state[3..]; or echo $topic
    end
end

# Prints recordings and folders, or all files where there is no recording.
function __@PROGRAM@_bags
    set -l word (commandline -ct)
    set -l files (__fish_complete_path $word)
    set -l fitting (string match -r '.*(?:/|\.kbag|\.kbin)(?:\t.*)?$' -- $files)
    if string match -qr '\.kb(ag|in)(\t|$)' -- $fitting
        string join -- \n $fitting
    else
        string join -- \n $files
    end
end

complete -c @PROGRAM@ -f
@COMPLETIONS@
