# Completion of korvex for fish: the tool itself says what may stand where.

function __korvex_complete
    set -l words (commandline --tokenize --cut-at-cursor --current-process)
    set -l current (commandline --cut-at-cursor --current-token)
    set -l lines (command $words[1] --complete $words[2..] "$(string unescape -- $current; or echo $current)" 2>/dev/null)
    switch "$lines[1]"
        case files
            __fish_complete_path "$current"
        case folders
            __fish_complete_directories "$current" ''
        case commands
            complete --do-complete "$current"
        case words
            printf '%s\n' $lines[2..]
    end
end

complete --command korvex --no-files --keep-order --arguments '(__korvex_complete)'
