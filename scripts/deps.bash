# Fetches, verifies and builds the pinned copies of miniz and tinyfiledialogs in .deps. Sourced by
# `dev`.

# Checksums of the fetched archives and of the files that are used from them.
readonly miniz_archive=miniz.c-3.1.0.tgz
readonly dialogs_archive=f3d_3.1.0+dfsg.orig.tar.xz
readonly archive_sums="\
1661a365cf195b70a77248b188f6543d28606ba5690eb44676e245a68ca7b695  $miniz_archive
106518c47069b51f5d21840254ab8d2bb2ff4d2cab4c2b49ad6ccc91dd290948  $dialogs_archive"
readonly source_sums="\
7487d4c8cd761b951a99d182672bb3badfa72a5ad5760b70b392fafa95223657  miniz/miniz.c
13a6940a8f33b3a76d4b64fb6d482b246954bae3bf5dc713f7f054d2096d0aba  miniz/miniz.h
640bfcdb76e5991f0d60883e544353439bbba0085d48143ee355142eadd339c5  tinyfiledialogs/tinyfiledialogs.c
a725dca1f6925695ee45819a8faf0fd845968bac1253cef144ec0efb3baf65be  tinyfiledialogs/tinyfiledialogs.h"

readonly install_deps_yourself="install miniz and tinyfiledialogs as CMake packages and set the\
 environment variable CMAKE_PREFIX_PATH to their directory."

matches_sums() { (cd -- "$1" && printf '%s\n' "$2" | sha256sum --check --status 2>/dev/null); }

sum_of() { printf '%s\n' "$archive_sums" | grep -F -- "  $1"; }

# keep_archive DIRECTORY NAME: moves a fetched archive to the cache if its checksum matches.
keep_archive() {
  matches_sums "$1" "$(sum_of "$2")" ||
    die "the checksum of the fetched file $2 does not match: it was discarded."
  mv -- "$1/$2" "$cache_dir/$2"
}

fetch_miniz() {
  need npm ca-certificates
  say "fetching miniz (npm package miniz.c)"
  local npm=(npm pack --silent --fetch-retries=1 --fetch-retry-mintimeout=1000)
  (cd -- "$1" && quietly "${npm[@]}" miniz.c@3.1.0) ||
    die "npm could not fetch miniz.c@3.1.0: check the network" \
      "(details: ${details_log#"$root"/}), then run this again."
  keep_archive "$1" "$miniz_archive"
}

debian_site() {
  # The servers of the security and update suites may not have the suite trixie.
  apt-get indextargets --format '$(ORIGIN) $(CODENAME) $(SITE)' 'Created-By: Packages' 2>/dev/null |
    awk '$1 == "Debian" && $2 !~ /-/ && !site { site = $3 } END { print site }'
}

fetch_dialogs() {
  is_debian_like ||
    die "tinyfiledialogs comes from a Debian source package, and this system has no apt-get:" \
      "$install_deps_yourself"
  need ca-certificates debian-archive-keyring
  if [[ -z $(debian_site) ]]; then
    may_install ||
      die "apt has no package lists: run 'apt-get update' as root, then run this again."
    refresh_package_lists
  fi
  local site keyring apt_dir=$1/apt
  site=$(debian_site)
  [[ -n $site ]] ||
    die "tinyfiledialogs comes from a Debian source package, and apt has no Debian source:" \
      "check the network and apt's sources, or $install_deps_yourself"
  keyring=$(dpkg -L debian-archive-keyring | grep '/debian-archive-keyring\.gpg$')

  say "fetching tinyfiledialogs (Debian source package f3d)"
  mkdir -p "$apt_dir/lists/partial" "$apt_dir/cache/archives/partial"
  printf 'deb-src [signed-by=%s] %s trixie main\n' "$keyring" "$site" >"$apt_dir/sources.list"
  # A separate configuration needs no root and leaves the system's sources and lists unchanged.
  local apt=(apt-get -q
    -o Dir::Etc::sourcelist="$apt_dir/sources.list" -o Dir::Etc::sourceparts=/dev/null
    -o Dir::State::lists="$apt_dir/lists" -o Dir::Cache="$apt_dir/cache" -o APT::Sandbox::User=root)
  quietly "${apt[@]}" update &&
    (cd -- "$1" && quietly "${apt[@]}" source --download-only --tar-only f3d=3.1.0+dfsg-1) ||
    die "apt-get could not fetch the source package f3d=3.1.0+dfsg-1: check the network" \
      "(details: ${details_log#"$root"/}), then run this again."
  keep_archive "$1" "$dialogs_archive"
}

unpack_sources() {
  mkdir -p "$1/unpacked" "$1/sources/miniz" "$1/sources/tinyfiledialogs"
  (
    cd -- "$1/unpacked"
    cmake -E tar xzf "$cache_dir/$miniz_archive"
    cmake -E tar xJf "$cache_dir/$dialogs_archive"
    mv package/miniz.[ch] package/LICENSE "$1/sources/miniz/"
    cd f3d-*/external/tinyfiledialogs
    mv tinyfiledialogs.cxx "$1/sources/tinyfiledialogs/tinyfiledialogs.c"
    mv tinyfiledialogs.h "$1/sources/tinyfiledialogs/"
  )
  matches_sums "$1/sources" "$source_sums" ||
    die "the checksums of the sources in the pinned archives do not match."
}

# Identifies the sources, build files and options of the built copies.
deps_fingerprint() {
  { printf '%s\n' "$source_sums" "$@"; cat cmake/deps/CMakeLists.txt cmake/deps/*.c; } | sha256sum
}

# build_pinned_deps WORK-DIR PREFIX [CMAKE-OPTIONS]
build_pinned_deps() {
  local work=$1 prefix=$2
  shift 2
  need libdeflate-dev
  say "building miniz and tinyfiledialogs"
  rm -f "$prefix/stamp"
  unpack_sources "$work"
  quietly cmake -S cmake/deps -B "$work/build" -G Ninja -DCMAKE_BUILD_TYPE=Release "$@" \
    -DCMAKE_INSTALL_LIBDIR=lib -DVX_DEPS_SOURCES="$work/sources" -DCMAKE_INSTALL_PREFIX="$prefix" &&
    quietly cmake --build "$work/build" &&
    quietly cmake --install "$work/build" ||
    die "miniz and tinyfiledialogs could not be built (details: ${details_log#"$root"/})."
  deps_fingerprint "$@" >"$work/stamp"
  (cd -- "$prefix" && sed "s|^$prefix/||" "$work/build/install_manifest.txt" |
    xargs -d '\n' sha256sum) >>"$work/stamp"
  mv "$work/stamp" "$prefix/stamp"
}

# are_deps_current PREFIX [CMAKE-OPTIONS]
#
# Succeeds if PREFIX has the unchanged result of building the pinned sources with these options.
are_deps_current() {
  local stamp=$1/stamp
  shift
  [[ -f $stamp && $(head -n 1 "$stamp") == "$(deps_fingerprint "$@")" ]] || return
  # The other lines of the stamp are the checksums of the installed files.
  (cd -- "${stamp%/*}" && tail -n +2 stamp | sha256sum --check --status --strict 2>/dev/null)
}

# Succeeds if CMake finds both packages elsewhere, for instance in the caller's CMAKE_PREFIX_PATH.
deps_installed_elsewhere() {
  local probe=$1/probe
  mkdir -p "$probe"
  cat >"$probe/CMakeLists.txt" <<'PROBE'
cmake_minimum_required(VERSION 3.25)
project(probe LANGUAGES C)
find_package(miniz CONFIG REQUIRED)
find_package(tinyfiledialogs CONFIG REQUIRED)
PROBE
  quietly cmake -S "$probe" -B "$probe/build" -G Ninja
}

# Fetches the pinned archives that are not in the cache.
need_archives() {
  mkdir -p "$cache_dir"
  matches_sums "$cache_dir" "$(sum_of "$miniz_archive")" || fetch_miniz "$1"
  matches_sums "$cache_dir" "$(sum_of "$dialogs_archive")" || fetch_dialogs "$1"
}

need_deps() {
  are_deps_current "$deps_dir" && return
  mkdir -p "$deps_dir"
  make_work_dir "$deps_dir/work.XXXXXX"
  deps_installed_elsewhere "$work_dir" && return
  need_archives "$work_dir"
  build_pinned_deps "$work_dir" "$deps_dir"
}

# need_instrumented_deps NAME C-FLAGS [CMAKE-OPTIONS]
#
# Builds the pinned copies with a sanitizer in .deps/NAME. Copies from a package manager are linked
# without one.
need_instrumented_deps() {
  local prefix=$deps_dir/$1 options=("-DCMAKE_C_FLAGS=-g -fno-omit-frame-pointer $2" "${@:3}")
  are_deps_current "$prefix" "${options[@]}" && return
  are_deps_current "$deps_dir" || return 0
  make_work_dir "$deps_dir/work.XXXXXX"
  need_archives "$work_dir"
  build_pinned_deps "$work_dir" "$prefix" "${options[@]}"
}

# Builds the copies that a preset links instead of those in .deps.
need_deps_of_preset() {
  local undefined="undefined -fno-sanitize-recover=all"
  case $1 in
    asan) need_instrumented_deps asan "-fsanitize=address,$undefined" ;;
    tsan) need_instrumented_deps tsan "-fsanitize=thread" ;;
    fuzz)
      need_instrumented_deps fuzz "-fsanitize=fuzzer-no-link,address,$undefined" \
        -DCMAKE_C_COMPILER=clang
      ;;
  esac
}

# need_foreign_deps PREFIX CMAKE-OPTIONS...
#
# Builds the pinned copies for another system, for which there are no packages.
need_foreign_deps() {
  local prefix=$1
  shift
  are_deps_current "$prefix" "$@" && return
  make_work_dir "$deps_dir/work.XXXXXX"
  need_archives "$work_dir"
  build_pinned_deps "$work_dir" "$prefix" "$@"
}
