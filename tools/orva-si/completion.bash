# SPDX-License-Identifier: LGPL-2.1-or-later
# Completion of orva-si for bash. It needs nothing but bash itself.

# Those of the words $1 that begin with $2, one a line, each behind $3.
_orva_si_words()
{
    local IFS=$' \t\n'
    compgen -P "$3" -W "$1" -- "$2"
}

# The options of command $1, or of the tool without a command.
_orva_si_options()
{
    echo "-h --help --version"
    [ -n "$1" ] && echo "--json --for --program --charset --realtime --stats -v --verbose -q --quiet --log-level"
    case $1 in
        scan) echo "--pds" ;;
        guide) echo "--service --from --to --lang --tz" ;;
        watch) echo "--lang --tz" ;;
        dump) echo "--table" ;;
    esac
}

# Names of time zones that begin with $1, a folder with a slash behind it. What begins with a small letter is no zone.
_orva_si_zones()
{
    compgen -W "UTC" -- "$1"
    (
        cd "${TZDIR:-/usr/share/zoneinfo}" 2>/dev/null || exit
        compgen -f -- "$1" | while IFS= read -r name; do
            case $name in
                UTC | [!A-Z]* | *[!A-Za-z0-9/_+-]*) ;;
                *) [ -d "$name" ] && echo "$name/" || echo "$name" ;;
            esac
        done
    )
}

# Values of option $1 that begin with $2; fails when the option takes none.
_orva_si_values()
{
    case $1 in
        --for | --program | --service | --from | --to) ;;
        --table) _orva_si_words "0x00 0x01 0x02 0x40 0x41 0x42 0x46 0x4A 0x4E 0x4F 0x50 0x60" "$2" ;;
        --pds) _orva_si_words "0x28 0x29 0x233A" "$2" ;;
        --log-level) _orva_si_words "1 2 3 4 5" "$2" ;;
        --charset)
            _orva_si_words "ISO6937 ISO-8859-1 ISO-8859-2 ISO-8859-3 ISO-8859-4 ISO-8859-5 ISO-8859-6 ISO-8859-7
                ISO-8859-8 ISO-8859-9 ISO-8859-10 ISO-8859-11 ISO-8859-13 ISO-8859-14 ISO-8859-15 ISO-8859-16
                UTF-8 UTF-16BE EUC-KR GB2312 GB18030 BIG5 KOI8-R CP1250 CP1251 CP1252" "$2"
            ;;
        --lang) # the code behind the last comma
            local others=
            [[ $2 == *,* ]] && others=${2%,*},
            _orva_si_words "bul cat ces cym dan deu ell eng est eus fin fra gla gle glg hrv hun isl ita
                lav lit ltz mis mkd mlt mul nld nor pol por qaa qad ron rus slk slv spa sqi srp swe tur ukr und" \
                "${2##*,}" "$others"
            ;;
        --tz) _orva_si_zones "$2" ;;
        *) return 1 ;;
    esac
    return 0
}

_orva_si()
{
    local current=${COMP_WORDS[COMP_CWORD]} option=${COMP_WORDS[COMP_CWORD - 1]} command=
    [ "$COMP_CWORD" -gt 1 ] && command=${COMP_WORDS[1]}

    # Bash takes --option=value for three words.
    if [ "$current" = "=" ]; then
        current=
    elif [ "$option" = "=" ]; then
        option=${COMP_WORDS[COMP_CWORD - 2]}
    fi

    local IFS=$'\n'
    if COMPREPLY=($(_orva_si_values "$option" "$current")); then
        [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == */ ]] && compopt -o nospace
    elif [ -z "$command" ]; then
        COMPREPLY=($(_orva_si_words "scan guide watch dump $(_orva_si_options)" "$current"))
    elif [[ $current == -* ]]; then
        COMPREPLY=($(_orva_si_words "$(_orva_si_options "$command")" "$current"))
    else
        COMPREPLY=()
        compopt -o default # names of files, as the shell does it
    fi
}

complete -F _orva_si orva-si
