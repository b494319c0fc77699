# `./dev matrix`. Sourced by `dev`.
#
# The rows contain every supported compiler, standard library and system at least once. Each kind of
# row is a function that gets the remaining columns as arguments. It works in the directory `$dir`
# and writes the numbers of passed, failed and skipped tests to `$dir/counts`.

#   name               kind     compiler or target    library    C++  flags
readonly matrix="\
    gcc-O0-20          native   g++-12                libstdc++  20   -O0
    gcc-O1-20          native   g++-12                libstdc++  20   -O1
    gcc-O3-23          native   g++-12                libstdc++  23   -O3 -DNDEBUG
    clang-O1-23        native   clang++-14            libstdc++  23   -O1
    clang-O2-20        native   clang++-14            libstdc++  20   -O2 -DNDEBUG
    clang-O0-23-libc++ native   clang++-14            libc++     23   -O0
    clang-O3-20-libc++ native   clang++-14            libc++     20   -O3 -DNDEBUG
    clang22-O2-20      native   clang++-22            libstdc++  20   -O2
    clang22-O0-23      native   clang++-22            libstdc++  23   -O0
    unity              unity    g++-12                libstdc++  20   -O2
    headers            headers  -                     libstdc++  -
    powerpc            powerpc  g++-12                libstdc++  20   -O2
    musl               cross    x86_64-linux-musl     libc++     20   -O0
    aarch64-linux      emulated aarch64-linux-gnu.2.36 libc++     23   -O1
    macos-arm64        macos    aarch64-macos         libc++     20   -O0
    macos-x86_64       macos    x86_64-macos          libc++     23   -O1"

readonly native_packages=(g++-12 clang-14)
readonly newest_packages=(g++-12 clang-14 clang-22)
readonly libcxx_packages=(libc++-14-dev libc++abi-14-dev googletest)
readonly powerpc_packages=(g++-powerpc-linux-gnu qemu-user googletest)
readonly cross_packages=(googletest musl libc6-arm64-cross qemu-user)
readonly macos_packages=(googletest file llvm-14)

source scripts/matrix/zig.bash

# ---- Building and testing a row ---------------------------------------------------------------

# need_googletest CMAKE-OPTIONS...
#
# Builds Debian's sources of googletest for standard libraries and systems without a package, and
# sets `googletest` to the directory of its CMake package under .deps. They are built again after a
# change of the options, the toolchain files or the packages.
need_googletest() {
  local key prefix
  key=$({
    printf '%s\n' "${VX_ZIG_TARGET:-}" "$zig_sums" "$@"
    cat scripts/matrix/*.cmake scripts/matrix/zig_tool
    dpkg-query -W googletest 'g++*' 'clang*' 'libc++*' 2>/dev/null || true
  } | sha256sum)
  prefix=$deps_dir/googletest/${key:0:16}
  googletest=$prefix/lib/cmake/GTest
  [[ ! -f $prefix/complete ]] || return 0
  rm -rf "$dir/googletest" "$prefix"
  cmake -S /usr/src/googletest -B "$dir/googletest" -G Ninja "$@" \
    -DCMAKE_INSTALL_PREFIX="$prefix" -DCMAKE_INSTALL_LIBDIR=lib &&
    cmake --build "$dir/googletest" --target install -j "$(jobs)" &&
    touch "$prefix/complete"
}

build_tree() {
  cmake -S . -B "$dir/build" -G Ninja "$@" -DVX_WARNINGS_AS_ERRORS=ON -DVX_BUILD_BENCHMARKS=OFF &&
    cmake --build "$dir/build" -j "$(jobs)" -- -k 0
}

# test_tree CTEST-ARGS...
test_tree() {
  local status=0
  ctest --test-dir "$dir/build" -j "$(test_jobs)" --timeout 120 --no-tests=error --output-on-failure \
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

# Prints the reasons that skipped tests have printed.
reasons_for_skips() {
  [[ ! -f $dir/tests.xml ]] ||
    sed -n '/: Skipped$/{n;p}' "$dir/tests.xml" | sort | uniq -c |
      sed 's/^ *\([0-9]*\) \(.*\)/  \1 skipped: \2/'
}

reasons_not_built() { sed -n 's/^-- \(Not [a-z]*: \)/  \1/p' "$dir/log" | sort -u; }

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
  need_googletest "${options[@]}" &&
    build_tree "${options[@]}" -DGTest_DIR="$googletest" \
      -DCMAKE_PREFIX_PATH="$deps_dir" && test_tree
}

# powerpc_row COMPILER LIBRARY STANDARD FLAGS...
#
# Runs the tests on an emulated 32-bit big-endian processor.
powerpc_row() {
  local toolchain=$root/scripts/matrix/powerpc.cmake prefix=$deps_dir/powerpc
  local options=(-DCMAKE_TOOLCHAIN_FILE="$toolchain" -DCMAKE_CXX_STANDARD="$3"
    -DCMAKE_CXX_FLAGS="${*:4}" -DVX_BUILD_EXAMPLES=OFF)
  need_foreign_deps "$prefix" -DCMAKE_TOOLCHAIN_FILE="$toolchain" -DVX_DEPS_LIBDEFLATE=OFF &&
    need_googletest "${options[@]}" &&
    build_tree "${options[@]}" -DGTest_DIR="$googletest" -DCMAKE_PREFIX_PATH="$prefix" &&
    test_emulated
}

test_emulated() { test_tree --exclude-regex "^($(names_not_emulated | paste -sd '|'))"; }

names_not_emulated() { sed -e '/^#/d' -e 's/   .*//' -e 's/\./\\./g' scripts/matrix/not_emulated.txt; }

reasons_not_emulated() {
  sed -e '/^#/d' -e 's/^\(.*[^ ]\)   *\(.*\)/  not run: \1* \2/' scripts/matrix/not_emulated.txt
}

# unity_row COMPILER LIBRARY STANDARD FLAGS...
#
# Compiles the libraries, the examples and ksz as unity builds.
unity_row() {
  build_tree -DCMAKE_CXX_COMPILER="$1" -DCMAKE_CXX_STANDARD="$3" -DCMAKE_CXX_FLAGS="${*:4}" \
    -DCMAKE_PREFIX_PATH="$deps_dir" -DCMAKE_UNITY_BUILD=ON -DVX_BUILD_TESTS=OFF &&
    printf '     built\n' >"$dir/counts"
}

# headers_row
#
# Compiles the public headers with warnings that users may enable.
headers_row() {
  local compiler standard passed=0 failed=0
  local warnings=(-Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Werror)
  printf '#include "%s"\n' core/*.h fs/*.h >"$dir/headers.cpp"
  for compiler in g++-12 clang++-14 clang++-22; do
    for standard in c++20 c++2b; do
      printf '%s -std=%s\n' "$compiler" "$standard"
      if "$compiler" -std="$standard" "${warnings[@]}" -I . -fsyntax-only "$dir/headers.cpp"; then
        passed=$((passed + 1))
      else
        failed=$((failed + 1))
      fi
    done
  done
  count "$passed" "$failed" 0
  ((failed == 0))
}

# use_zig TARGET STANDARD FLAGS...: builds the dependencies and sets `zig_options` for CMake.
use_zig() {
  local target=$1
  export VX_ZIG_TARGET=$target
  zig_options=(-DCMAKE_TOOLCHAIN_FILE="$zig_toolchain" -DCMAKE_CXX_STANDARD="$2"
    -DCMAKE_CXX_FLAGS="${*:3}")
  need_zig_prefix "$target" && need_googletest "${zig_options[@]}" || return
  zig_options+=(-DGTest_DIR="$googletest" -DCMAKE_PREFIX_PATH="$deps_dir/$target"
    -DCMAKE_FIND_ROOT_PATH="$deps_dir/$target")
}

# cross_row TARGET LIBRARY STANDARD FLAGS...
#
# Runs the tests with another C library.
cross_row() {
  use_zig "$1" "${@:3}" &&
    build_tree "${zig_options[@]}" && test_tree
}

# emulated_row TARGET LIBRARY STANDARD FLAGS...
#
# Runs the tests on another emulated processor. The tests of the examples and of ksz start programs,
# which the emulator cannot do.
emulated_row() {
  use_zig "$1" "${@:3}" &&
    build_tree "${zig_options[@]}" -DVX_BUILD_EXAMPLES=OFF && test_emulated
}

# macos_row TARGET LIBRARY STANDARD FLAGS...
#
# Builds everything that does not need Linux with macOS's headers and library stubs: as static
# libraries with the tests, and as shared libraries. The programs cannot be run.
macos_row() {
  use_zig "$1" "${@:3}" &&
    build_tree "${zig_options[@]}" &&
    build_shared "${zig_options[@]}" &&
    check_mach_o "$1"
}

# The libraries and ksz; the examples are linked with the static libraries.
build_shared() {
  cmake -S . -B "$dir/shared" -G Ninja "$@" -DVX_WARNINGS_AS_ERRORS=ON -DVX_BUILD_BENCHMARKS=OFF \
    -DVX_BUILD_TESTS=OFF -DVX_BUILD_EXAMPLES=OFF -DVX_INSTALL_TOOLS=ON -DBUILD_SHARED_LIBS=ON &&
    cmake --build "$dir/shared" -j "$(jobs)"
}

# check_mach_o TARGET: counts the linked files that have the format of the target.
check_mach_o() {
  local processor=${1%%-*} file passed=0 failed=0
  rm -f "$dir/linked"
  local libraries=("$dir"/shared/libvx_*.*.*.*.dylib)
  while IFS= read -r file; do
    if file -b "$file" | tee -a "$dir/linked" | grep -q "^Mach-O 64-bit ${processor/aarch/arm} "; then
      passed=$((passed + 1))
    else
      printf 'not a program for %s: %s\n' "$1" "$file"
      failed=$((failed + 1))
    fi
  done < <(linked_files)
  {
    file -N "${libraries[@]}" "$dir/shared/tools/ksz/ksz"
    llvm-objdump-14 --macho --dylibs-used "${libraries[@]}" "$dir/shared/tools/ksz/ksz"
  } | sed "s|^$dir/|  |" >"$dir/mach_o"
  printf '%4d linked, %d of them in another format; %d test programs\n' \
    "$((passed + failed))" "$failed" "$(linked_files | grep -c '/vx_test_')" >"$dir/counts"
  ((passed > 0 && failed == 0))
}

linked_files() {
  find "$dir/build" "$dir/shared" -path '*/CMakeFiles' -prune -o \
    -type f \( -perm -u+x -o -name '*.dylib' \) -print
}

# ---- The matrix -------------------------------------------------------------------------------

need_for_row() {
  case $* in
    *" powerpc "*) need "${powerpc_packages[@]}" ;;
    *" cross "* | *" emulated "*) need "${cross_packages[@]}" && need_zig ;;
    *" macos "*) need "${macos_packages[@]}" && need_zig ;;
    *" headers "* | *clang++-22*) need "${newest_packages[@]}" ;;
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
  rm -f "$dir/counts" "$dir/tests.xml" "$dir/mach_o"
  "${kind}_row" "${@:3}" >"$dir/log" 2>&1 || status=1
  ((status == 0)) || show_failure
  reasons_for_skips
  reasons_not_built
  [[ $kind != @(powerpc|emulated) ]] || reasons_not_emulated
  [[ ! -f $dir/mach_o ]] || cat "$dir/mach_o"
  results+=("$(printf '%-20s %s' "$name" "$(cat "$dir/counts" 2>/dev/null || echo '   not built')")")
  return "$status"
}

# Prints the failed tests, or the end of the log if the build failed.
show_failure() {
  if [[ -f $dir/counts ]]; then
    sed -e '1,/^Test project /d' -e '/^ *Start /d' -e '/\.  *Passed /d' -e '/\*Skipped /d' "$dir/log"
  else
    tail -n 60 "$dir/log"
  fi
}

# run_matrix FILTER: runs the rows whose names match.
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
