# fish completion of tagport-lab, made by: tagport-lab completion fish
function __tagport_lab
    set -l before (commandline -opc)
    set -l token (commandline -ct)
    set -l head (string match -r -- '^--[^=]*=' $token)
    set -l lines ($before[1] complete-words $before[2..-1] $token)
    if contains -- $lines[1] files directories
        for path in (__fish_complete_path (string replace -r -- '^--[^=]*=' '' $token))
            echo "$head$path"
        end
    end
    for word in $lines[2..-1]
        echo "$head$word"
    end
end
complete -c tagport-lab -f -a '(__tagport_lab)'
