# Made by scripts/pages out of the descriptions in tools/.
_k7m() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD-1]}
  local command=${COMP_WORDS[1]} words=
  COMPREPLY=()
  # Bash makes '=' a word of its own.
  if [ "$current" = '=' ]; then
    current=
  elif [ "$previous" = '=' ] && [ "$COMP_CWORD" -gt 2 ]; then
    previous=${COMP_WORDS[COMP_CWORD-2]}
  fi
  if [ "$COMP_CWORD" -eq 1 ]; then
    words='info tree samples extract remux index query fragment repair append verify -h --help --version'
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
    return
  fi
  case $command:$previous in
    samples:--track | samples:--type | samples:--from | samples:--to | extract:--track | extract:--description | remux:--edits | query:--fragment | query:--segment | fragment:--duration | append:--keep-until | append:--duration) return ;;
  esac
  if [[ $current != -* ]]; then
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
    return
  fi
  case $command in
    info) words='-h --help --strict --json' ;;
    tree) words='-h --help --strict --json --all' ;;
    samples) words='-h --help --strict --track --type --from --to --media --json --csv' ;;
    extract) words='-h --help --strict --metadata --track --codec-header --description -o --output' ;;
    remux) words='-h --help --strict --edits --fragmented --metadata --no-metadata --force' ;;
    index) words='-h --help --strict -o --output --force' ;;
    query) words='-h --help --index --fragment --segment -o --output --force' ;;
    fragment) words='-h --help --strict --duration --bootstrap --index --force' ;;
    repair) words='-h --help' ;;
    append) words='-h --help --strict --keep-until --duration' ;;
    verify) words='-h --help --json' ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}
complete -o filenames -F _k7m k7m
