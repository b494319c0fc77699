# Messages, the log of noisy commands, and the temporary work directory. Sourced by `dev`.

say() { printf '== %s\n' "$*"; }

die() {
  printf 'dev: %s\n' "$*" >&2
  exit 1
}

# Runs a command and redirects its output to a log, because the output names package servers.
quietly() {
  mkdir -p "$deps_dir"
  printf '\n$ %s\n' "$*" >>"$details_log"
  "$@" >>"$details_log" 2>&1
}

# Sets `work_dir` to a new directory, which is removed when this script ends.
make_work_dir() {
  remove_work_dir
  work_dir=$(mktemp -d "$1")
  trap remove_work_dir EXIT
}

remove_work_dir() { [[ -z ${work_dir:-} ]] || rm -rf -- "$work_dir"; }
