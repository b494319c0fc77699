# The rows of `./dev matrix`, which reads this file: what the library is promised to build and pass
# with, each value at least once.
#
# Each kind of row is a function, which has the rest of the row's line for arguments and `$dir` for a
# folder of its own, and counts what has passed, failed and been skipped.

#   name               kind     compiler    library    C++  flags
readonly matrix="\
    gcc-O0-20          native   g++-12      libstdc++  20   -O0
    gcc-O1-20          native   g++-12      libstdc++  20   -O1
    gcc-O3-23          native   g++-12      libstdc++  23   -O3 -DNDEBUG
    clang-O1-23        native   clang++-14  libstdc++  23   -O1
    clang-O2-20        native   clang++-14  libstdc++  20   -O2 -DNDEBUG
    clang-O0-23-libc++ native   clang++-14  libc++     23   -O0
    clang-O3-20-libc++ native   clang++-14  libc++     20   -O3 -DNDEBUG
    powerpc            powerpc  g++-12      libstdc++  20   -O2
    darwin             darwin   clang++-14  libc++     20   -O2"

readonly native_packages=(g++-12 clang-14)
readonly libcxx_packages=(libc++-14-dev libc++abi-14-dev googletest)
readonly powerpc_packages=(g++-powerpc-linux-gnu qemu-user googletest)
readonly libcxx_headers=/usr/lib/llvm-14/include/c++/v1

# ---- Building and testing a row ---------------------------------------------------------------

# Debian's sources, for standard libraries and systems that its package is not for.
build_googletest() {
  cmake -S /usr/src/googletest -B "$dir/googletest" -G Ninja "$@" \
    -DCMAKE_INSTALL_PREFIX="$dir/prefix" -DCMAKE_INSTALL_LIBDIR=lib &&
    cmake --build "$dir/googletest" --target install -j "$(jobs)"
}

build_tree() {
  cmake -S . -B "$dir/build" -G Ninja "$@" -DVX_WARNINGS_AS_ERRORS=ON -DVX_BUILD_BENCHMARKS=OFF &&
    cmake --build "$dir/build" -j "$(jobs)"
}

# test_tree CTEST-ARGS...
test_tree() {
  local status=0
  ctest --test-dir "$dir/build" -j "$(jobs)" --timeout 120 --no-tests=error --output-on-failure \
    --output-junit "$dir/tests.xml" "$@" || status=1
  count_tests
  return "$status"
}

count_tests() {
  local failed skipped
  failed=$(count_of failures)
  skipped=$(($(count_of skipped) + $(count_of disabled)))
  count "$(($(count_of tests) - failed - skipped))" "$failed" "$skipped"
}

count_of() { sed -n "0,/$1=\"/s/.*$1=\"\([0-9]*\)\".*/\1/p" "$dir/tests.xml"; }

count() { printf '%4d passed, %d failed, %d skipped\n' "$@" >"$dir/counts"; }

# Why tests were skipped, in their own words.
reasons_for_skips() {
  [[ ! -f $dir/tests.xml ]] ||
    sed -n '/: Skipped$/{n;p}' "$dir/tests.xml" | sort | uniq -c |
      sed 's/^ *\([0-9]*\) \(.*\)/  \1 skipped: \2/'
}

# ---- The kinds of rows ------------------------------------------------------------------------

# native_row COMPILER LIBRARY STANDARD FLAGS...
native_row() {
  local library=$2 flags="${*:4}"
  local options=(-DCMAKE_CXX_COMPILER="$1" -DCMAKE_CXX_STANDARD="$3")
  if [[ $library == libstdc++ ]]; then
    build_tree "${options[@]}" -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_PREFIX_PATH="$deps_dir" &&
      test_tree
    return
  fi
  options+=(-DCMAKE_CXX_FLAGS="$flags -stdlib=$library")
  build_googletest "${options[@]}" &&
    build_tree "${options[@]}" -DCMAKE_PREFIX_PATH="$dir/prefix;$deps_dir" && test_tree
}

# powerpc_row COMPILER LIBRARY STANDARD FLAGS...
#
# A 32-bit big-endian processor, emulated.
powerpc_row() {
  local toolchain=$root/scripts/matrix/powerpc.cmake prefix=$deps_dir/powerpc
  local options=(-DCMAKE_TOOLCHAIN_FILE="$toolchain" -DCMAKE_CXX_STANDARD="$3"
    -DCMAKE_CXX_FLAGS="${*:4}" -DVX_BUILD_EXAMPLES=OFF)
  need_foreign_deps "$prefix" -DCMAKE_TOOLCHAIN_FILE="$toolchain" -DVX_DEPS_LIBDEFLATE=OFF &&
    build_googletest "${options[@]}" &&
    build_tree "${options[@]}" -DCMAKE_PREFIX_PATH="$dir/prefix;$prefix" &&
    test_tree --exclude-regex "^($(names_not_emulated | paste -sd '|'))"
}

names_not_emulated() { sed -e '/^#/d' -e 's/   .*//' -e 's/\./\\./g' scripts/matrix/not_emulated.txt; }

reasons_not_emulated() {
  sed -e '/^#/d' -e 's/^\(.*[^ ]\)   *\(.*\)/  not run: \1* \2/' scripts/matrix/not_emulated.txt
  printf '  not run: fs_zip_corpus needs OpenSSL, which Debian has not got for that system\n'
}

# darwin_row COMPILER LIBRARY STANDARD FLAGS...
#
# The sources as macOS gets them, compiled for both of its processors against stand-ins for the
# headers of its C library. That of the tests for its loader is the last folder, since others lie
# beside it.
darwin_row() {
  local compiler=$1 processor source passed=0 failed=0
  need_foreign_deps "$deps_dir" || return
  local includes=(-nostdinc -isystem "$("$compiler" -print-resource-dir)/include"
    -isystem scripts/matrix/darwin -isystem "$deps_dir/include/miniz"
    -isystem "$deps_dir/include/tinyfiledialogs" -isystem tests/testing/stand_ins -I .)
  local options=(-std="c++$3" "${@:4}" -stdlib=libc++ -Wall -Wextra -Wpedantic -Wconversion -Werror
    -isystem "$libcxx_headers" "${includes[@]}")
  for processor in x86_64 arm64; do
    for source in core/*.cpp fs/vx_fs.cpp fs/internal/vx_fs_platform_mac.cpp; do
      printf '%s for %s\n' "$source" "$processor"
      if "$compiler" -target "$processor-apple-macos12" "${options[@]}" -c "$source" \
        -o "$dir/$(basename "$source" .cpp)-$processor.o"; then
        passed=$((passed + 1))
      else
        failed=$((failed + 1))
      fi
    done
  done
  count "$passed" "$failed" 0
  ((failed == 0))
}

# ---- The matrix -------------------------------------------------------------------------------

need_for_row() {
  case $* in
    *powerpc*) need "${powerpc_packages[@]}" ;;
    *libc++*) need "${native_packages[@]}" "${libcxx_packages[@]}" ;;
    *) need "${native_packages[@]}" ;;
  esac
}

# run_row NAME KIND ARGUMENTS...
run_row() {
  local name=$1 kind=$2 status=0
  need_for_row "$@"
  say "$name: ${*:3}"
  dir=$root/build/matrix/$name
  mkdir -p "$dir"
  rm -f "$dir/counts" "$dir/tests.xml"
  "${kind}_row" "${@:3}" >"$dir/log" 2>&1 || status=1
  ((status == 0)) || show_failure
  reasons_for_skips
  [[ $kind != powerpc ]] || reasons_not_emulated
  results+=("$(printf '%-20s %s' "$name" "$(cat "$dir/counts" 2>/dev/null || echo '   not built')")")
  return "$status"
}

# The end of the log tells of what was not built; of tests those that have failed.
show_failure() {
  if [[ -f $dir/counts ]]; then
    sed -e '1,/^Test project /d' -e '/^ *Start /d' -e '/\.  *Passed /d' -e '/\*Skipped /d' "$dir/log"
  else
    tail -n 60 "$dir/log"
  fi
}

# run_matrix FILTER: the rows whose names match.
run_matrix() {
  local filter=$1 row status=0
  results=()
  while read -ra row; do
    if [[ ${row[0]} =~ $filter ]]; then
      run_row "${row[@]}" </dev/null || status=1
    fi
  done <<<"$matrix"
  ((${#results[@]})) || die "no row of the matrix matches '$filter'."
  say "results"
  printf '  %s\n' "${results[@]}"
  return "$status"
}
