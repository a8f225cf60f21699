# Completion of tarsil-virtual-glove in bash.
# Written by scripts/command-lines from packaging/command_lines.json.

_tarsil_virtual_glove_files() {
  local typed="$1" extension
  shift
  compopt -o filenames
  mapfile -t COMPREPLY < <(
    compgen -d -- "$typed"
    (($# > 0)) || compgen -f -- "$typed"
    for extension in "$@"; do
      compgen -f -X "!*.$extension" -- "$typed"
      compgen -f -X "!*.${extension^^}" -- "$typed"
    done | sort -u
  )
}

_tarsil_virtual_glove() {
  local current="${COMP_WORDS[COMP_CWORD]}" previous="${COMP_WORDS[COMP_CWORD - 1]}"
  COMPREPLY=()
  case " $previous" in
    " --link")
      _tarsil_virtual_glove_files "$current"
      return
      ;;
    " --serial" | " --firmware" | " --hz" | " --seed" | " --counter" | " --frames" | " --replug")
      return
      ;;
    " --side")
      mapfile -t COMPREPLY < <(compgen -W "left right" -- "$current")
      return
      ;;
    " --defect")
      compopt -o nospace
      mapfile -t COMPREPLY < <(compgen -W "stuck: noisy: backlash:" -- "$current")
      return
      ;;
    " --fault")
      compopt -o nospace
      mapfile -t COMPREPLY < <(compgen -W "lost-cycles= lost-bytes= flipped-bits= garbage= splits= silence= hang= truncated-blocks= unknown-types= unknown-blocks=" -- "$current")
      return
      ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W "--link --serial --side --firmware --hz --seed --counter --announce --frames --overrun --replug --defect --fault --help" -- "$current")
}
complete -F _tarsil_virtual_glove tarsil-virtual-glove
