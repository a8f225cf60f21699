# Completion of tarsil-virtual-glove in fish.
# Written by scripts/command-lines from packaging/command_lines.json.

complete -c tarsil-virtual-glove -f
complete -c tarsil-virtual-glove -l link -r -F -d 'Make path a symbolic link to the port, and remove it at the end'
complete -c tarsil-virtual-glove -l serial -x -d 'Serial number, 0 to 255 bytes; TSL-VG000001 by default'
complete -c tarsil-virtual-glove -l side -x -a 'left right' -d 'Which hand, left or right; right by default'
complete -c tarsil-virtual-glove -l firmware -x -d 'Firmware version, each number 0 to 255; 1.4 by default'
complete -c tarsil-virtual-glove -l hz -x -d 'Cycles per second, 0.01 to 20000; 200 by default'
complete -c tarsil-virtual-glove -l seed -x -d 'Seed of motion and faults; 1 by default'
complete -c tarsil-virtual-glove -l counter -x -d 'Cycle counter of the first packet, 0 to 65535; 0 by default'
complete -c tarsil-virtual-glove -l announce -d 'Repeat the identity unasked, every 200 ms until started'
complete -c tarsil-virtual-glove -l frames -x -d 'Fall silent after n cycles, and end when the host has closed the port'
complete -c tarsil-virtual-glove -l overrun -d 'Lose the cycles for which the line has no room instead of sending them late'
complete -c tarsil-virtual-glove -l replug -x -d 'Vanish that long after streaming began, and come back on a new port'
complete -c tarsil-virtual-glove -l defect -x -a 'stuck: noisy: backlash:' -d 'A worn sensor of joint 0 to 19; may be given several times'
complete -c tarsil-virtual-glove -l fault -x -a 'lost-cycles= lost-bytes= flipped-bits= garbage= splits= silence= hang= truncated-blocks= unknown-types= unknown-blocks=' -d 'Something goes wrong with this probability per cycle, or once after that time; may be given several times'
complete -c tarsil-virtual-glove -l help -d 'Print the usage text and exit with status 0'
