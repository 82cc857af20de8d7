# bash completion for velzip; installed as
# share/bash-completion/completions/velzip.

_velzip() {
  local cur prev word i
  cur=${COMP_WORDS[COMP_CWORD]}
  prev=${COMP_WORDS[COMP_CWORD-1]}

  # The command is the first word that is neither an option nor an
  # option's value; the words like it after it are its operands.
  local command= operands=0
  for ((i = 1; i < COMP_CWORD; i++)); do
    word=${COMP_WORDS[i]}
    case $word in
      -f | --format | -p | --password | -i | --include | -x | --exclude | -j | --threads)
        ((i++)) ;;
      -*) ;;
      *) if [[ -z $command ]]; then command=$word; else ((operands++)); fi ;;
    esac
  done

  case $prev in
    -f | --format)
      if [[ $command == compress ]]; then
        COMPREPLY=($(compgen -W '0 1' -- "$cur"))
      else
        COMPREPLY=($(compgen -W 'auto 0 1' -- "$cur"))
      fi
      return ;;
    -j | --threads)
      COMPREPLY=($(compgen -W "1 2 $(getconf _NPROCESSORS_ONLN 2>/dev/null)" -- "$cur"))
      return ;;
    -p | --password | -i | --include | -x | --exclude)
      return ;;
  esac

  local common='-q --quiet -v --verbose -h --help'
  if [[ -z $command ]]; then
    if [[ $cur == -* ]]; then
      COMPREPLY=($(compgen -W "$common --version" -- "$cur"))
    else
      COMPREPLY=($(compgen -W 'compress extract test list gzip help' -- "$cur"))
    fi
    return
  fi

  local options
  case $command in
    compress)
      options='-f --format -0 -1 -2 -3 -4 -5 -6 -7 -8 -9 -x --exclude -j --threads
               --no-xattrs --force' ;;
    extract)
      options='-f --format -p --password -i --include -x --exclude -o --overwrite
               -k --keep-existing -j --threads --no-xattrs --keep-setid' ;;
    test) options='-f --format -p --password -j --threads' ;;
    list) options='--json' ;;
    *) options= ;;
  esac
  if [[ $cur == -* ]]; then
    COMPREPLY=($(compgen -W "$common $options" -- "$cur"))
  elif [[ $command == compress && $operands -eq 0 ]]; then
    COMPREPLY=($(compgen -d -- "$cur"))  # FOLDER
  else
    COMPREPLY=($(compgen -f -- "$cur"))
  fi
}

complete -o filenames -F _velzip velzip
