#include "ctl/verbs/Completion.h"

namespace ctl {

namespace {

constexpr const char* bash = R"SH(_vmctl() {
  local line=${COMP_LINE:0:COMP_POINT} words current
  read -ra words <<<"$line"
  [[ $line == *[[:blank:]] ]] && words+=("")
  current=${words[-1]}
  mapfile -t COMPREPLY < <(vmctl __complete -- "${words[@]:1}" 2>/dev/null)
  # The shell takes apart at each '=' what is one word.
  [[ $current == *=* ]] && COMPREPLY=("${COMPREPLY[@]#"${current%=*}="}")
  [[ ${COMPREPLY[0]-} == *= ]] && compopt -o nospace 2>/dev/null
  return 0
}
complete -o default -F _vmctl vmctl
)SH";

constexpr const char* zsh = R"SH(#compdef vmctl
_vmctl() {
  local -a found
  found=(${(f)"$(vmctl __complete -- "${(@)words[2,CURRENT]}" 2>/dev/null)"})
  if (( ! $#found )); then
    _files
    return
  fi
  compadd -S '' -- ${(M)found:#*=}
  compadd -- ${found:#*=}
}
# Run as the function itself where it was found as a file, or else read by a person's shell.
if [[ $funcstack[1] == _vmctl ]]; then
  _vmctl "$@"
else
  compdef _vmctl vmctl
fi
)SH";

constexpr const char* fish = R"SH(complete -c vmctl -e
function __vmctl_complete
    set -l words (commandline -opc) (commandline -ct)
    vmctl __complete -- $words[2..-1] 2>/dev/null
end
complete -c vmctl -f -a '(__vmctl_complete)'
complete -c vmctl -l disk -r -F
complete -c vmctl -s f -r -F -n '__fish_seen_subcommand_from apply'
complete -c vmctl -l file -r -F
)SH";

}  // namespace

rt::String completionScript(std::string_view shell) {
  if (shell == "bash") return bash;
  if (shell == "zsh") return zsh;
  return shell == "fish" ? fish : "";
}

}  // namespace ctl
