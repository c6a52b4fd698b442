# shellcheck shell=bash
# Functions that the scripts share; sourced, not run.

# Prints the help: the header comment of the running script.
usage() { sed -n '2,/^\([^#]\|$\)/ s/^#\( \|$\)//p' "$0"; }

# refuse ARGUMENT: reports an unknown argument and exits.
refuse() {
  echo "${0##*/}: unknown argument: $1" >&2
  usage >&2
  exit 2
}

# answer_help ARGUMENT...: prints the help and exits if the first argument asks for it.
answer_help() {
  case "${1:-}" in
    -h | --help)
      if [ $# -gt 1 ]; then refuse "$2"; fi
      usage
      exit 0
      ;;
  esac
}

# The folder for what is built or downloaded once and kept outside the source tree.
fenlux_cache() { echo "${FENLUX_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/fenlux}"; }

# build_preset PRESET [TARGET...]: configures and builds. Scripts that run at the same time take turns.
# FENLUX_CMAKE_OPTIONS has more options for CMake, separated by spaces.
build_preset() {
  local preset=$1 log options
  shift
  read -ra options <<<"${FENLUX_CMAKE_OPTIONS:-}"
  mkdir -p build
  (
    flock 9
    log=$(cmake --preset "$preset" "${options[@]}" 2>&1) || { echo "$log" >&2; exit 1; }
    cmake --build --preset "$preset" ${1:+--target "$@"} 9>&-
  ) 9>"build/.$preset.lock"
}
