# Completion of vel-supervisor(1) for bash: its options, and configuration files.

_vel_supervisor() {
    local current=${COMP_WORDS[COMP_CWORD]}
    if [[ $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W '--check --help --version' -- "$current")
    else
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -f -X '!*.json' -- "$current"; compgen -d -- "$current")
    fi
}
complete -F _vel_supervisor vel-supervisor
