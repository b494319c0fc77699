# Installs what `./dev setup` and other subcommands need. Sourced by `dev`.

# Additional packages for fetching and building the two dependencies.
readonly deps_packages=(npm ca-certificates libdeflate-dev)

# set_up PACKAGES...: installs the compilers, the two dependencies and the packages.
set_up() {
  set -- "${build_packages[@]}" "$@"
  announce_setup "$@"
  need "$@"
  need_cmake
  need_deps
}

set_up_for_tests() {
  set_up "${example_packages[@]}" "${test_packages[@]}"
  # Tests that lack one of these are skipped and print the reason.
  need_where_possible "${some_tests_packages[@]}"
}

# Prints what will be installed.
announce_setup() {
  local missing deps=()
  ! must_build_deps || deps=("${deps_packages[@]}")
  mapfile -t missing < <(missing_of "$@" "${deps[@]}")
  ((${#missing[@]} == 0)) || say "setup will install the packages ${missing[*]}"
  ((${#deps[@]} == 0)) || say "setup will fetch miniz and tinyfiledialogs and build them in .deps/"
}

must_build_deps() {
  ! are_deps_current "$deps_dir" || return 1
  command -v cmake >/dev/null || return 0
  mkdir -p "$deps_dir"
  make_work_dir "$deps_dir/work.XXXXXX"
  ! deps_installed_elsewhere "$work_dir"
}
