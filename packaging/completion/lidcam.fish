# Completion of lidcam's commands, options, cameras, controls and files in fish.

function __lidcam_complete
    set -l words (commandline --tokenize --cut-at-cursor --current-process)
    set -l typed (commandline --current-token --cut-at-cursor)
    for line in ($words[1] __complete $words[2..] "$typed" 2>/dev/null)
        if test "$line" = :files
            __fish_complete_path "$typed"
        else
            echo $line
        end
    end
end

complete --command lidcam --no-files --arguments '(__lidcam_complete)'
