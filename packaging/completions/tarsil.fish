# Completion of tarsil in fish.
# Written by scripts/command-lines from packaging/command_lines.json.

complete -c tarsil -f
complete -c tarsil -n 'test (count (commandline -opc)) -eq 1' -s h -l help -d 'Print the usage text and exit with status 0'

complete -c tarsil -n 'test (count (commandline -opc)) -eq 1' -a devices -d 'List connected gloves'

complete -c tarsil -n 'test (count (commandline -opc)) -eq 1' -a doctor -d 'Run diagnostics on the connected glove'
complete -c tarsil -n '__fish_seen_subcommand_from doctor' -l port -x -a '(set -l ports /dev/ttyACM* /dev/ttyUSB*; string match -- (commandline -ct)\'*\' $ports; or __fish_complete_path (commandline -ct))' -d 'Serial port of the glove; by default it is looked for'
complete -c tarsil -n '__fish_seen_subcommand_from doctor' -l mock -d 'Use a synthetic source instead of a glove'
complete -c tarsil -n '__fish_seen_subcommand_from doctor' -l hz -x -d 'Frames per second of the synthetic source; 100 by default'

complete -c tarsil -n 'test (count (commandline -opc)) -eq 1' -a stream -d 'Show live data in the terminal'
complete -c tarsil -n '__fish_seen_subcommand_from stream' -l count -x -d 'Stop after n frames'
complete -c tarsil -n '__fish_seen_subcommand_from stream' -l raw -d 'Print one row per frame, for other programs'
complete -c tarsil -n '__fish_seen_subcommand_from stream' -l port -x -a '(set -l ports /dev/ttyACM* /dev/ttyUSB*; string match -- (commandline -ct)\'*\' $ports; or __fish_complete_path (commandline -ct))' -d 'Serial port of the glove; by default it is looked for'
complete -c tarsil -n '__fish_seen_subcommand_from stream' -l mock -d 'Use a synthetic source instead of a glove'
complete -c tarsil -n '__fish_seen_subcommand_from stream' -l hz -x -d 'Frames per second of the synthetic source; 100 by default'

complete -c tarsil -n 'test (count (commandline -opc)) -eq 1' -a record -d 'Record a session into a file'
complete -c tarsil -n '__fish_seen_subcommand_from record' -l frames -x -d 'Stop after n frames'
complete -c tarsil -n '__fish_seen_subcommand_from record' -l format -x -a 'tsl csv json' -d 'Write this format, whatever the extension of the file'
complete -c tarsil -n '__fish_seen_subcommand_from record' -l meta -x -d 'Add a metadata field; may be given several times'
complete -c tarsil -n '__fish_seen_subcommand_from record' -l port -x -a '(set -l ports /dev/ttyACM* /dev/ttyUSB*; string match -- (commandline -ct)\'*\' $ports; or __fish_complete_path (commandline -ct))' -d 'Serial port of the glove; by default it is looked for'
complete -c tarsil -n '__fish_seen_subcommand_from record' -l mock -d 'Use a synthetic source instead of a glove'
complete -c tarsil -n '__fish_seen_subcommand_from record' -l hz -x -d 'Frames per second of the synthetic source; 100 by default'
complete -c tarsil -n '__fish_seen_subcommand_from record; and test (count (commandline -opc)) -eq 2' -a '(__fish_complete_path (commandline -ct) | string match -re \'(?:/|\\.(?:csv|json|tsl|CSV|JSON|TSL))(?:\\t|$)\')'

complete -c tarsil -n 'test (count (commandline -opc)) -eq 1' -a replay -d 'Play a recording back'
complete -c tarsil -n '__fish_seen_subcommand_from replay' -l speed -x -d 'Play back f times as fast; 1.0 by default'
complete -c tarsil -n '__fish_seen_subcommand_from replay' -l loop -d 'Start again at the end, for ever'
complete -c tarsil -n '__fish_seen_subcommand_from replay; and test (count (commandline -opc)) -eq 2' -a '(__fish_complete_path (commandline -ct) | string match -re \'(?:/|\\.(?:tsl|TSL))(?:\\t|$)\')'

complete -c tarsil -n 'test (count (commandline -opc)) -eq 1' -a health -d 'Check the joint sensors, and ask for a certificate'
complete -c tarsil -n '__fish_seen_subcommand_from health' -l frames -x -d 'Analyze n frames; 500 by default'
complete -c tarsil -n '__fish_seen_subcommand_from health' -l upload -d 'Upload the result and fetch a certificate without asking first'
complete -c tarsil -n '__fish_seen_subcommand_from health' -l port -x -a '(set -l ports /dev/ttyACM* /dev/ttyUSB*; string match -- (commandline -ct)\'*\' $ports; or __fish_complete_path (commandline -ct))' -d 'Serial port of the glove; by default it is looked for'
complete -c tarsil -n '__fish_seen_subcommand_from health' -l mock -d 'Use a synthetic source instead of a glove'
complete -c tarsil -n '__fish_seen_subcommand_from health' -l hz -x -d 'Frames per second of the synthetic source; 100 by default'
