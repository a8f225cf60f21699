# Completion of tarsil-recording in bash.
# Written by scripts/command-lines from packaging/command_lines.json.

# The words up to the cursor. The shell has taken them apart at colons, equals signs and the like, and replaces the last
# piece only: already is what stands before that.
_tarsil_recording_words() {
  local rest="$COMP_LINE" before="" piece index
  words=() already=""
  for ((index = 0; index <= COMP_CWORD; ++index)); do
    piece="${COMP_WORDS[index]}"
    if [[ "$rest" != [[:space:]]* && ("$before" == *[:=@] || "$piece" == [:=@]*) ]] && ((index > 0)); then
      already="${words[-1]}"
      words[-1]+="$piece"
    else
      already=""
      words+=("$piece")
    fi
    [[ "$piece" == *[!:=@]* ]] || already="${words[-1]}"
    rest="${rest#"${rest%%[![:space:]]*}"}"
    rest="${rest#"$piece"}"
    before="$piece"
  done
}

# Without quotes, and without what the shell does not replace.
_tarsil_recording_trim() {
  local index word
  already=${already//[\\\"\']/}
  for index in "${!COMPREPLY[@]}"; do
    word="$prefix${COMPREPLY[index]}"
    COMPREPLY[index]="${word#"$already"}"
    [[ -n "${COMPREPLY[index]}" ]] || unset "COMPREPLY[index]"
  done
}

_tarsil_recording_files() {
  local typed=${1//[\\\"\']/} extension
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

_tarsil_recording_candidates() {
  local current="${words[-1]}" previous="${words[-2]}"
  if ((${#words[@]} == 2)); then
    local names="info check recover convert plot"
    [[ "$current" != -* ]] || names="-h --help"
    mapfile -t COMPREPLY < <(compgen -W "$names" -- "$current")
    return
  fi
  local command="${words[1]}"
  local only_files="" index
  for ((index = 2; index < ${#words[@]} - 1; ++index)); do
    [[ "${words[index]}" != -- ]] || only_files=yes
  done
  [[ -z "$only_files" ]] || previous=""
  if [[ -z "$only_files" && "$current" == --*=* ]]; then
    previous="${current%%=*}"
    prefix="$previous="
    current="${current#*=}"
  fi
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
  [[ -z "$prefix" ]] || return
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
  local given=0
  for ((index = 2; index < ${#words[@]} - 1; ++index)); do
    case "${words[index]}" in
      --)
        ((given += ${#words[@]} - index - 2))
        break
        ;;
      --format | -o | --output | --width | --height) ((++index)) ;;
      -*) ;;
      *) ((++given)) ;;
    esac
  done
  if [[ ("$only_files" || "$current" != -*) && -n "${files[given]:-}" ]]; then
    # The extensions of one kind of file are words of their own.
    _tarsil_recording_files "$current" ${files[given]}
    return
  fi
  [[ -z "$only_files" ]] || return
  mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
}

_tarsil_recording() {
  local -a words
  local already prefix=""
  COMPREPLY=()
  _tarsil_recording_words
  _tarsil_recording_candidates
  _tarsil_recording_trim
}
complete -F _tarsil_recording tarsil-recording
