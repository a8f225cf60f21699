# Completion of tarsil-virtual-glove in bash.
# Written by scripts/command-lines from packaging/command_lines.json.

# The words up to the cursor. The shell has taken them apart at colons, equals signs and the like, and replaces the last
# piece only: already is what stands before that.
_tarsil_virtual_glove_words() {
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
_tarsil_virtual_glove_trim() {
  local index word
  already=${already//[\\\"\']/}
  for index in "${!COMPREPLY[@]}"; do
    word="$prefix${COMPREPLY[index]}"
    COMPREPLY[index]="${word#"$already"}"
    [[ -n "${COMPREPLY[index]}" ]] || unset "COMPREPLY[index]"
  done
}

_tarsil_virtual_glove_files() {
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

_tarsil_virtual_glove_candidates() {
  local current="${words[-1]}" previous="${words[-2]}"
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

_tarsil_virtual_glove() {
  local -a words
  local already prefix=""
  COMPREPLY=()
  _tarsil_virtual_glove_words
  _tarsil_virtual_glove_candidates
  _tarsil_virtual_glove_trim
}
complete -F _tarsil_virtual_glove tarsil-virtual-glove
