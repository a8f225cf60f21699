# Completion of tarsil-recording in fish.
# Written by scripts/command-lines from packaging/command_lines.json.

complete -c tarsil-recording -f
complete -c tarsil-recording -n 'test (count (commandline -opc)) -eq 1' -s h -l help -d 'Print the usage text, after a command that of the command, and exit with status 0'

complete -c tarsil-recording -n 'test (count (commandline -opc)) -eq 1' -a info -d 'Tell what is in a recording'
complete -c tarsil-recording -n '__fish_seen_subcommand_from info' -l json -d 'Print a JSON document'
complete -c tarsil-recording -n '__fish_seen_subcommand_from info' -s h -l help -d 'Print the usage text of the command'
complete -c tarsil-recording -n '__fish_seen_subcommand_from info' -a '(__fish_complete_path (commandline -ct) | string match -re \'(?:/|\\.(?:tsl|TSL))(?:\\t|$)\')'

complete -c tarsil-recording -n 'test (count (commandline -opc)) -eq 1' -a check -d 'Tell where a recording is not as it should be'
complete -c tarsil-recording -n '__fish_seen_subcommand_from check' -l all -d 'Show all damaged lines, not only the first 20'
complete -c tarsil-recording -n '__fish_seen_subcommand_from check' -s h -l help -d 'Print the usage text of the command'
complete -c tarsil-recording -n '__fish_seen_subcommand_from check' -a '(__fish_complete_path (commandline -ct) | string match -re \'(?:/|\\.(?:tsl|TSL))(?:\\t|$)\')'

complete -c tarsil-recording -n 'test (count (commandline -opc)) -eq 1' -a recover -d 'Copy everything that is whole in a damaged recording'
complete -c tarsil-recording -n '__fish_seen_subcommand_from recover' -l force -d 'Replace the output if it exists; it can never be the input itself'
complete -c tarsil-recording -n '__fish_seen_subcommand_from recover' -s h -l help -d 'Print the usage text of the command'
complete -c tarsil-recording -n '__fish_seen_subcommand_from recover' -a '(__fish_complete_path (commandline -ct) | string match -re \'(?:/|\\.(?:tsl|TSL))(?:\\t|$)\')'

complete -c tarsil-recording -n 'test (count (commandline -opc)) -eq 1' -a convert -d 'Write a recording as csv or json'
complete -c tarsil-recording -n '__fish_seen_subcommand_from convert' -l format -x -a 'csv json' -d 'Format of the output; by default its extension says it'
complete -c tarsil-recording -n '__fish_seen_subcommand_from convert' -l force -d 'Replace the output if it exists; it can never be the input itself'
complete -c tarsil-recording -n '__fish_seen_subcommand_from convert' -s h -l help -d 'Print the usage text of the command'
complete -c tarsil-recording -n '__fish_seen_subcommand_from convert' -a '(__fish_complete_path (commandline -ct) | string match -re \'(?:/|\\.(?:csv|json|tsl|CSV|JSON|TSL))(?:\\t|$)\')'

complete -c tarsil-recording -n 'test (count (commandline -opc)) -eq 1' -a plot -d 'Draw a recording'
complete -c tarsil-recording -n '__fish_seen_subcommand_from plot' -s o -l output -x -a '(__fish_complete_path (commandline -ct | string replace -r -- \'^--[a-z-]+=\' \'\') | string match -re \'(?:/|\\.(?:svg|png|SVG|PNG))(?:\\t|$)\')' -d 'The picture to write'
complete -c tarsil-recording -n '__fish_seen_subcommand_from plot' -l format -x -a 'svg png' -d 'Format of the picture; by default its extension says it'
complete -c tarsil-recording -n '__fish_seen_subcommand_from plot' -l width -x -d 'Width, 800 to 10000; 1200 by default'
complete -c tarsil-recording -n '__fish_seen_subcommand_from plot' -l height -x -d 'Height, 1000 to 10000; 1600 by default'
complete -c tarsil-recording -n '__fish_seen_subcommand_from plot' -l force -d 'Replace the picture if it exists; it can never be the recording itself'
complete -c tarsil-recording -n '__fish_seen_subcommand_from plot' -s h -l help -d 'Print the usage text of the command'
complete -c tarsil-recording -n '__fish_seen_subcommand_from plot' -a '(__fish_complete_path (commandline -ct) | string match -re \'(?:/|\\.(?:tsl|TSL))(?:\\t|$)\')'
