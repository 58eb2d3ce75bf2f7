# bash completion of tagport-lab, made by: tagport-lab completion bash
_tagport_lab() {
    local cur=${COMP_WORDS[COMP_CWORD]} before= files= lines
    if [[ $cur == = ]]; then
        cur=
    elif [[ $cur == --*=* ]]; then
        before=${cur%%=*}= cur=${cur#*=}
    fi
    mapfile -t lines < <("${COMP_WORDS[0]}" complete-words "${COMP_WORDS[@]:1:COMP_CWORD}" | cut -f1)
    case ${lines[0]} in
        files) files=-f ;;
        directories) files=-d ;;
    esac
    mapfile -t COMPREPLY < <(compgen ${files:+"$files"} -W "${lines[*]:1}" -- "$cur")
    COMPREPLY=("${COMPREPLY[@]/#/$before}")
    [[ -z $files ]] || compopt -o filenames
}
complete -F _tagport_lab tagport-lab
