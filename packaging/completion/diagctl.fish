# fish completion for diagctl. The words come from diagctl's own help.
function __diagctl_words
    set -l commands (commandline -opc)[2..] # what was typed before the word at the cursor
    diagctl (string match -r '^[a-z].*' -- $commands) --help 2>/dev/null |
        string replace -rf '^  (?:-[a-z],)?([a-z-]+).*' '$1'
end
complete -c diagctl -f -a '(__diagctl_words)'
