# Completion of tarsil in bash.
# Written by scripts/command-lines from packaging/command_lines.json.

# The words up to the cursor. The shell has taken them apart at colons, equals signs and the like, and replaces the last
# piece only: already is what stands before that.
_tarsil_words() {
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
_tarsil_trim() {
  local index word
  already=${already//[\\\"\']/}
  for index in "${!COMPREPLY[@]}"; do
    word="$prefix${COMPREPLY[index]}"
    COMPREPLY[index]="${word#"$already"}"
    [[ -n "${COMPREPLY[index]}" ]] || unset "COMPREPLY[index]"
  done
}

_tarsil_files() {
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

_tarsil_ports() {
  local word
  COMPREPLY=()
  for word in /dev/ttyACM* /dev/ttyUSB*; do
    [[ -e "$word" && "$word" == "$1"* ]] && COMPREPLY+=("$word")
  done
  ((${#COMPREPLY[@]} > 0)) || _tarsil_files "$1"
}

_tarsil_candidates() {
  local current="${words[-1]}" previous="${words[-2]}"
  if ((${#words[@]} == 2)); then
    local names="devices doctor stream record replay health"
    [[ "$current" != -* ]] || names="-h --help"
    mapfile -t COMPREPLY < <(compgen -W "$names" -- "$current")
    return
  fi
  local command="${words[1]}"
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
  local given=$((${#words[@]} - 3))
  if [[ "$current" != -* && -n "${files[given]:-}" ]]; then
    # The extensions of one kind of file are words of their own.
    _tarsil_files "$current" ${files[given]}
    return
  fi
  mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
}

_tarsil() {
  local -a words
  local already prefix=""
  COMPREPLY=()
  _tarsil_words
  _tarsil_candidates
  _tarsil_trim
}
complete -F _tarsil tarsil
