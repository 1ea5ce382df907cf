# Completion of aclctl for bash: aclctl itself knows what may come next.
_aclctl() {
  local words=("${COMP_WORDS[@]:1:COMP_CWORD}")
  mapfile -t COMPREPLY < <("${COMP_WORDS[0]}" complete -- "${words[@]}" 2>/dev/null)
}
# Where it knows nothing, files are offered.
complete -o default -F _aclctl aclctl
