# Configures, builds and tests a preset. Sourced by `dev`.

jobs() { nproc 2>/dev/null || getconf _NPROCESSORS_ONLN; }

# Many tests wait for a process, a screen or a file system.
test_jobs() { printf '%d\n' "$(($(jobs) * 2))"; }

configure_preset() {
  local output
  need_deps_of_preset "$1"
  # -U: other copies of the dependencies may have been built since the last run.
  output=$(cmake --preset "$1" -U miniz_DIR -U tinyfiledialogs_DIR 2>&1) || {
    printf '%s\n' "$output" >&2
    die "CMake could not configure the preset '$1'."
  }
}

# build_preset PRESET [BUILD-ARGS...]
build_preset() {
  configure_preset "$1"
  cmake --build --preset "$1" -j "$(jobs)" "${@:2}"
}

# An optional command that runs ctest.
test_prefix=()

# test_preset PRESET [CTEST-ARGS...]
test_preset() {
  build_preset "$1"
  "${test_prefix[@]}" ctest --preset "$1" -j "$(test_jobs)" "${@:2}"
}
