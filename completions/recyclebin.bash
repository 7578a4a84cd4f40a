# Completion of recyclebin for bash. Commands, options and their words are those of the
# program's own help, so that they are of the version that is installed.

# The words that the help names as values of an option, such as the forms of --format.
_recyclebin_words() # HELP OPTION
{
    awk -v option="$2" '
        /^  -/ { wanted = $1 == option; sub(/^ +[^ ]+ [^ ]+/, "") }
        wanted { gsub(/\.\.\.|Excludes: --[a-z-]+|,/, " "); sub(/ or /, " "); print }' <<<"$1"
}

_recyclebin_value() # HELP OPTION; fails if it has no value
{
    case $(awk -v option="$2" '$1 == option { print $2; exit }' <<<"$1") in
    *FILE) _filedir ;;
    DIR) _filedir -d ;;
    FORM | STATE | PLACE)
        mapfile -t COMPREPLY < <(compgen -W "$(_recyclebin_words "$1" "$2")" -- "$cur")
        ;;
    N\|now) mapfile -t COMPREPLY < <(compgen -W now -- "$cur") ;;
    [A-Z]*) [[ $2 == -* ]] ;; # a number, a time, a name: nothing to offer
    *) return 1 ;;
    esac
}

_recyclebin()
{
    local cur prev words cword split
    _init_completion -s || return
    local word command= help
    for word in "${words[@]:1:cword-1}"; do
        [[ $word == -* ]] || { command=$word; break; }
    done
    help=$("$1" ${command:+"$command"} --help 2>/dev/null) || return
    if [[ -z $command && $cur != -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$(
            awk '/^Subcommands:/ { on = 1; next } /^$/ { on = 0 } on { print $1 }' <<<"$help"
        )" -- "$cur")
    elif [[ -n $command && $prev == --* ]] && _recyclebin_value "$help" "$prev"; then
        return
    elif [[ $cur == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$(
            awk '/^  -/ { n = split($1, names, ","); print names[n] }' <<<"$help"
        )" -- "$cur")
    else
        _filedir
    fi
} && complete -F _recyclebin recyclebin
