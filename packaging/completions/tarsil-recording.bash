# Completion of tarsil-recording in bash.
# Written by scripts/command-lines from packaging/command_lines.json.

_tarsil_recording_files() {
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

_tarsil_recording() {
  local current="${COMP_WORDS[COMP_CWORD]}" previous="${COMP_WORDS[COMP_CWORD - 1]}"
  COMPREPLY=()
  if ((COMP_CWORD == 1)); then
    local words="info check recover convert plot"
    [[ "$current" != -* ]] || words="-h --help"
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
    return
  fi
  local command="${COMP_WORDS[1]}"
  case "$command $previous" in
    "convert --format")
      mapfile -t COMPREPLY < <(compgen -W "csv json" -- "$current")
      return
      ;;
    "plot -o" | "plot --output")
      _tarsil_recording_files "$current" svg png
      return
      ;;
    "plot --format")
      mapfile -t COMPREPLY < <(compgen -W "svg png" -- "$current")
      return
      ;;
    "plot --width" | "plot --height")
      return
      ;;
  esac
  local options=""
  local -a files=()
  case "$command" in
    info)
      options="--json -h --help"
      files=("tsl")
      ;;
    check)
      options="--all -h --help"
      files=("tsl")
      ;;
    recover)
      options="--force -h --help"
      files=("tsl" "tsl")
      ;;
    convert)
      options="--format --force -h --help"
      files=("tsl" "csv json")
      ;;
    plot)
      options="-o --output --format --width --height --force -h --help"
      files=("tsl")
      ;;
  esac
  local given=0 index
  for ((index = 2; index < COMP_CWORD; ++index)); do
    case "${COMP_WORDS[index]}" in
      --format | -o | --output | --format | --width | --height) ((++index)) ;;
      -*) ;;
      *) ((++given)) ;;
    esac
  done
  if [[ "$current" != -* && -n "${files[given]:-}" ]]; then
    # The extensions of one kind of file are words of their own.
    _tarsil_recording_files "$current" ${files[given]}
    return
  fi
  mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
}
complete -F _tarsil_recording tarsil-recording
