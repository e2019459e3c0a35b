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
    info:--spool-limit | tree:--spool-limit | samples:--spool-limit | samples:--track | samples:--type | samples:--from | samples:--to | extract:--spool-limit | extract:--track | extract:--description | remux:--spool-limit | remux:--edits | index:--spool-limit | query:--spool-limit | query:--fragment | query:--segment | fragment:--spool-limit | fragment:--duration | append:--spool-limit | append:--keep-until | append:--duration | verify:--spool-limit) return ;;
  esac
  if [[ $current != -* ]]; then
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
    return
  fi
  case $command in
    info) words='-h --help --spool-limit --strict --json --count-fragments' ;;
    tree) words='-h --help --spool-limit --strict --json --all' ;;
    samples) words='-h --help --spool-limit --strict --track --type --from --to --media --json --csv' ;;
    extract) words='-h --help --spool-limit --strict --metadata --track --codec-header --description -o --output' ;;
    remux) words='-h --help --spool-limit --strict --edits --fragmented --metadata --no-metadata --force' ;;
    index) words='-h --help --spool-limit --strict -o --output --force' ;;
    query) words='-h --help --spool-limit --index --fragment --segment -o --output --force' ;;
    fragment) words='-h --help --spool-limit --strict --duration --bootstrap --index --force' ;;
    repair) words='-h --help' ;;
    append) words='-h --help --spool-limit --strict --keep-until --duration' ;;
    verify) words='-h --help --spool-limit --json' ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}
complete -o filenames -F _k7m k7m
