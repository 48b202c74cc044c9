# Completion of velctl(1) for bash, with the names of the modules that are on the bus now, and of the events that they have
# subscribed.

_velctl() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD-1]}
    local velctl=${COMP_WORDS[0]}
    local words='' word command='' arguments=() index

    # What stands before the cursor: the command and its arguments, without options and their values.
    for ((index = 1; index < COMP_CWORD; index++)); do
        word=${COMP_WORDS[index]}
        case $word in
            --timeout | --address | --count | --facility | --as | --context | --running | --gone | --from | --rotate | --keep | \
            --after | --before | --speed) ((index++)) ;;
            -*) ;;
            *) if [[ -z $command ]]; then command=$word; else arguments+=("$word"); fi ;;
        esac
    done

    case $previous in
        --running | --gone | --as | --facility | --from)
            words=$("$velctl" list --names --timeout 1 2>/dev/null) ;;
        --timeout | --address | --count | --context | --rotate | --keep | --after | --before | --speed) ;;
        *)
            if [[ $current == -* ]]; then
                words='--json --timeout --address --help'
                case $command in
                    list) words+=' --all --names' ;;
                    subscribers) words+=' --names' ;;
                    status) words+=' --names --info' ;;
                    watch) words+=' --count --from --rate' ;;
                    publish) words+=' --as --context' ;;
                    wait) words+=' --running --gone --from' ;;
                    loglevel) words+=' --facility' ;;
                    record) words+=' --calls --rotate --keep' ;;
                    replay) words+=' --from --after --before --speed --flat-out --control --dry-run --as' ;;
                esac
            else
                case $command:${#arguments[@]} in
                    :0 | help:0) words='list status watch publish call wait subscribers loglevel mtrace reset stop describe
                             start restart save restore record replay stats trace help' ;;
                    status:0 | call:0 | stop:0 | mtrace:1)
                        words=$("$velctl" list --names --timeout 1 2>/dev/null) ;;
                    start:0 | restart:0 | save:* | restore:*)
                        words=$("$velctl" list --all --names --timeout 1 2>/dev/null) ;;
                    watch:* | publish:0 | wait:0 | subscribers:0)
                        words=$("$velctl" subscribers --names --timeout 1 2>/dev/null) ;;
                    call:1) words=$("$velctl" status "${arguments[0]}" --names --timeout 1 2>/dev/null) ;;
                    record:0 | replay:0 | stats:0 | trace:0 | describe:*) words=$(compgen -f -- "$current") ;;
                    loglevel:0) words='silent error warning info debug' ;;
                    mtrace:0) words='on off' ;;
                    reset:0) words='default factory' ;;
                esac
            fi ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}

complete -F _velctl velctl
