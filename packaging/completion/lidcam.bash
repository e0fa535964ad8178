# Completion of lidcam's commands, options, cameras, controls and files in bash.

_lidcam() {
  local cur words cword line
  _get_comp_words_by_ref -n =: cur words cword
  COMPREPLY=()
  compopt -o nosort 2>/dev/null
  while IFS= read -r line; do
    if [ "$line" = :files ]; then
      compopt -o filenames
      _filedir
    else
      COMPREPLY+=("${line%%$'\t'*}")
    fi
  done < <("${words[0]}" __complete "${words[@]:1:cword}" 2>/dev/null)
  # A name that its value follows is not complete.
  if [ ${#COMPREPLY[@]} = 1 ] && [[ ${COMPREPLY[0]} == *[=:] ]]; then compopt -o nospace; fi
  __ltrim_colon_completions "$cur"
  # bash completes behind the last "=" only.
  if [[ $cur == *=* ]]; then
    local index prefix=${cur%"${cur##*=}"}
    for index in "${!COMPREPLY[@]}"; do COMPREPLY[index]=${COMPREPLY[index]#"$prefix"}; done
  fi
}

complete -F _lidcam lidcam
