# Messages, the log of commands that print too much, and the work folder. Read by `dev`.

say() { printf '== %s\n' "$*"; }

die() {
  printf 'dev: %s\n' "$*" >&2
  exit 1
}

# Runs a command whose own output names package servers: it goes to a log, which stays in the tree.
quietly() {
  mkdir -p "$deps_dir"
  printf '\n$ %s\n' "$*" >>"$details_log"
  "$@" >>"$details_log" 2>&1
}

# Sets `work_dir` to a new directory that goes when this script ends, however it ends.
make_work_dir() {
  remove_work_dir
  work_dir=$(mktemp -d "$1")
  trap remove_work_dir EXIT
}

remove_work_dir() { [[ -z ${work_dir:-} ]] || rm -rf -- "$work_dir"; }
