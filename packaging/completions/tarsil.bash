# Completion of tarsil in bash.
# Written by scripts/command-lines from packaging/command_lines.json.

_tarsil_files() {
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

_tarsil_ports() {
  local word
  COMPREPLY=()
  for word in /dev/ttyACM* /dev/ttyUSB*; do
    [[ -e "$word" && "$word" == "$1"* ]] && COMPREPLY+=("$word")
  done
  ((${#COMPREPLY[@]} > 0)) || _tarsil_files "$1"
}

_tarsil() {
  local current="${COMP_WORDS[COMP_CWORD]}" previous="${COMP_WORDS[COMP_CWORD - 1]}"
  COMPREPLY=()
  if ((COMP_CWORD == 1)); then
    local words="devices doctor stream record replay health"
    [[ "$current" != -* ]] || words="-h --help"
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
    return
  fi
  local command="${COMP_WORDS[1]}"
  case "$command $previous" in
    "doctor --port" | "stream --port" | "record --port" | "health --port")
      _tarsil_ports "$current"
      return
      ;;
    "doctor --hz" | "stream --count" | "stream --hz" | "record --frames" | "record --meta" | "record --hz" | "replay --speed" | "health --frames" | "health --hz")
      return
      ;;
    "record --format")
      mapfile -t COMPREPLY < <(compgen -W "tsl csv json" -- "$current")
      return
      ;;
  esac
  local options=""
  local -a files=()
  case "$command" in
    devices)
      options=""
      ;;
    doctor)
      options="--port --mock --hz"
      ;;
    stream)
      options="--count --raw --port --mock --hz"
      ;;
    record)
      options="--frames --format --meta --port --mock --hz"
      files=("tsl csv json")
      ;;
    replay)
      options="--speed --loop"
      files=("tsl")
      ;;
    health)
      options="--frames --upload --port --mock --hz"
      ;;
  esac
  local given=$((COMP_CWORD - 2))
  if [[ "$current" != -* && -n "${files[given]:-}" ]]; then
    # The extensions of one kind of file are words of their own.
    _tarsil_files "$current" ${files[given]}
    return
  fi
  mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
}
complete -F _tarsil tarsil
