#compdef tagport-lab
# zsh completion of tagport-lab, made by: tagport-lab completion zsh
_tagport-lab() {
    local -a lines
    lines=("${(@f)$("${words[1]}" complete-words "${(@)words[2,CURRENT]}" | cut -f1)}")
    [[ $PREFIX != --*=* ]] || compset -P '*='
    case ${lines[1]} in
        files) _files ;;
        directories) _files -/ ;;
    esac
    (( ${#lines} < 2 )) || compadd -- "${(@)lines[2,-1]}"
}
# A file of a completion directory is the body of the function at its first call; "source" of the
# same text registers the function.
if [[ ${funcstack[1]} == _tagport-lab ]]; then
    _tagport-lab "$@"
else
    (( ${+functions[compdef]} )) || { autoload -Uz compinit && compinit -i; }
    compdef _tagport-lab tagport-lab
fi
