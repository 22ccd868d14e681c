# Made by tools/gen_completions.py from the program's own --help.

# Offers what `compgen "$@"` finds for the rest of the word behind an option's spelling. Where the
# shell itself breaks words at `=`, only that rest is replaced.
_vex_cpp_behind() {
  local spelling=$1 entry
  shift
  while IFS= read -r entry; do
    [[ $1 == -[df] && -d $entry ]] && entry+=/ && compopt -o nospace
    [[ $spelling == *= && $COMP_WORDBREAKS == *=* ]] || entry=$spelling$entry
    COMPREPLY+=("$entry")
  done < <(compgen "$@" -- "${word#"$spelling"}")
}

_vex_cpp() {
  local line=${COMP_LINE:0:COMP_POINT}
  local word=${line##*[[:space:]]}
  COMPREPLY=()
  case $word in
    --cmode=*) _vex_cpp_behind --cmode= -W 'lvx r20 r20e tsasm tslink tslib ssc ovk' ;;
    -o*) _vex_cpp_behind -o -f ;;
    --output=*) _vex_cpp_behind --output= -f ;;
    --markers=*) _vex_cpp_behind --markers= -W 'gcc' ;;
    --udf=*) _vex_cpp_behind --udf= -f ;;
    --report=*) _vex_cpp_behind --report= -f ;;
    -I*) _vex_cpp_behind -I -d ;;
    --include=*) _vex_cpp_behind --include= -f ;;
    --dep=*) _vex_cpp_behind --dep= -f ;;
    -L*) _vex_cpp_behind -L -W 'gcc list' ;;
    --messages=*) _vex_cpp_behind --messages= -W 'gcc' ;;
    -E*) _vex_cpp_behind -E -f ;;
    --edf=*) _vex_cpp_behind --edf= -f ;;
    -*)
      COMPREPLY=($(compgen -W '--help --version --ver --cmode= -o --output= --delete_on_error --markers= -C -dM -F --udf= --report= -D -U -N -S -I --include= -H -V --dep= --dep_target= --dep_phony -L --dep_nosys -W --Werror --Wno-error --msgdisable= --disl= --emax= --messages= -E --edf= --kvdebug=' -- "$word"))
      [[ ${COMPREPLY[0]} == *= || ${COMPREPLY[0]} == -[FDUNSILWE] ]] && compopt -o nospace
      ;;
    @*) _vex_cpp_behind @ -f ;;
    *) _vex_cpp_behind '' -f ;;
  esac
}

complete -F _vex_cpp vex-cpp
