# `./dev format`, `./dev tidy` and `./dev check`. Sourced by `dev`.

# ---- Selecting files --------------------------------------------------------------------------

all_files() { find . \( -path ./build -o -path './.?*' \) -prune -o -type f -printf '%P\n'; }

# Prints the files that differ from main, including uncommitted and untracked ones.
changed_files() {
  local base
  base=$(git merge-base HEAD origin/main 2>/dev/null) || base=HEAD
  git diff --name-only --diff-filter=d "$base" --
  git ls-files --others --exclude-standard
}

# select_files EXTENDED-REGEX FILES...: prints the files that match.
select_files() {
  local regex=$1
  shift
  (($# == 0)) || printf '%s\n' "$@" | grep -E "$regex" | sort -u || true
}

# Prints the sources that the preset check compiles, relative to the root of the tree.
compiled_sources() {
  sed -n "s|^  \"file\": \"$root/\(.*\)\",\{0,1\}\$|\1|p" build/check/compile_commands.json | sort -u
}

# Prints the given sources and, for each given header, one source that includes it, because tools
# check a header as part of a source.
sources_showing() {
  local file compiled
  mapfile -t compiled < <(compiled_sources)
  for file in "$@"; do
    case $file in
      *.h) grep -lF "#include \"$file\"" "${file%.h}.cpp" "${compiled[@]}" 2>/dev/null | head -1 ;;
      *) printf '%s\n' "${compiled[@]}" | grep -xF "$file" ;;
    esac || true
  done | sort -u
}

# ---- Checks of the given files ----------------------------------------------------------------

check_format() {
  (($#)) || return 0
  clang-format --dry-run --Werror "$@" || die "the format differs: run ./dev format."
}

check_with_cppcheck() {
  (($#)) || return 0
  cppcheck --language=c++ --std=c++20 --enable=warning,performance,portability --inline-suppr \
    --quiet --error-exitcode=1 -I . "$@" || die "cppcheck reports the findings above."
}

check_with_tidy() {
  (($#)) || return 0
  printf '%s\0' "$@" | xargs -0 -n 1 -P "$(jobs)" clang-tidy --quiet -p build/check ||
    die "clang-tidy reports the findings above."
}

# Checks that the libraries include what they use. The default mappings accept a dozen headers for
# size_t, so they are replaced.
check_includes() {
  (($#)) || return 0
  local mappings option options=()
  mappings=$(dirname -- "$(command -v include-what-you-use)")/../share/include-what-you-use
  for option in --error --no_fwd_decls --no_default_mappings --check_also="$root"/{core,fs}/"*.h" \
    --mapping_file="$mappings"/{gcc.stl.headers,stl.c.headers,gcc.libc}.imp \
    --mapping_file="$root/cmake/includes.imp"; do
    options+=(-Xiwyu "$option")
  done
  iwyu_tool -p build/check -j "$(jobs)" -o clang "$@" -- -w "${options[@]}" |
    awk '!/are correct$/ && !seen[$0]++' || die "the includes differ as reported above."
}

# Checks all scripts at once, because `dev` sources most of them and they use its variables.
check_scripts() {
  shellcheck --check-sourced --external-sources --severity=warning dev .ci/* scripts/take_screenshots ||
    die "shellcheck reports the findings above."
}

# ---- Subcommands ------------------------------------------------------------------------------

readonly source_regex='\.(h|cpp)$' library_regex='^(core|fs)/.*\.(h|cpp)$'

run_format() {
  need clang-format
  local files
  mapfile -t files < <(all_files | grep -E "$source_regex")
  if [[ ${1:-} != --check ]]; then
    clang-format -i "${files[@]}"
    return
  fi
  check_format "${files[@]}"
  say "all sources are formatted"
}

run_tidy() {
  need clang-tidy
  set_up_for_tests
  configure_preset check
  local files=("$@")
  ((${#files[@]})) || mapfile -t files < <(compiled_sources)
  check_with_tidy "${files[@]}"
}

run_check() {
  need clang-format clang-tidy cppcheck iwyu shellcheck
  local files sources library_files
  if [[ ${1:-} == --all ]]; then
    mapfile -t files < <(all_files)
  else
    mapfile -t files < <(changed_files)
  fi
  mapfile -t sources < <(select_files "$source_regex" "${files[@]}")
  say "checking ${#sources[@]} sources and headers"

  say "shellcheck"
  check_scripts
  ((${#sources[@]})) || return 0
  check_format "${sources[@]}"
  set_up_for_tests
  configure_preset check
  mapfile -t library_files < <(select_files "$library_regex" "${sources[@]}")
  say "cppcheck"
  check_with_cppcheck "${library_files[@]}"
  say "clang-tidy"
  mapfile -t files < <(sources_showing "${sources[@]}")
  check_with_tidy "${files[@]}"
  ((${#library_files[@]})) || return 0
  say "includes"
  mapfile -t files < <(select_files "$library_regex" "${files[@]}")
  check_includes "${files[@]}"
  say "each public header on its own"
  cmake --build build/check --target all_verify_interface_header_sets
}
