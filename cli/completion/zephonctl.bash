# bash completion for zephonctl
_zephonctl() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD-1]}
  local commands="say prebake voices remove clone bind pack health selftest stats log"
  local common="--url --json --timeout --help"
  local binding="-a --airline -l --language -g --gender"
  local line="$binding --voice --style --speed --sample-rate --seed"
  local command= word i
  for ((i = 1; i < COMP_CWORD; ++i)); do
    word=${COMP_WORDS[i]}
    case $word in
      --url | --timeout) ((++i)) ;;
      -*) ;;
      *) command=$word; break ;;
    esac
  done
  case $previous in
    -g | --gender) COMPREPLY=($(compgen -W "female male default" -- "$current")); return ;;
    -l | --language) COMPREPLY=($(compgen -W "zh en ja" -- "$current")); return ;;
    -o | --output | --clip) COMPREPLY=($(compgen -f -- "$current")); return ;;
    --data-root) COMPREPLY=($(compgen -d -- "$current")); return ;;
    --url | --node) COMPREPLY=($(compgen -W "http://127.0.0.1:17150" -- "$current")); return ;;
  esac
  local options= files=
  case $command in
    "") options="$commands --version" ;;
    say) options="$line --urgent -o --output --etag" ;;
    prebake) options="$line --batch --node --interval"; files=yes ;;
    clone) options="$binding --clip --text --style --note" ;;
    bind) options="$binding --voice --default --remove" ;;
    pack) options="import export --data-root --voice"; files=yes ;;
    selftest) options="$binding --text" ;;
    stats) options="--watch --count" ;;
    log) options="--lines -f --follow" ;;
  esac
  COMPREPLY=($(compgen -W "$options $common" -- "$current"))
  if [[ $files && $current != -* ]]; then COMPREPLY+=($(compgen -f -- "$current")); fi
}
complete -o filenames -F _zephonctl zephonctl
