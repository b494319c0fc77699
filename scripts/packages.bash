# Lists the Debian packages by purpose and installs missing ones. Sourced by `dev`.

readonly build_packages=(cmake ninja-build g++)
readonly example_packages=(libcli11-dev)
readonly test_packages=(libgtest-dev libgmock-dev unzip python3 pkg-config)
readonly some_tests_packages=(nlohmann-json3-dev libssl-dev locales zip xvfb xdotool zenity valgrind
  strace gdb lintian dpkg-dev clang libc++-dev libc++abi-dev)
readonly bench_packages=(libbenchmark-dev libboost-filesystem-dev qtbase5-dev llvm-14-dev libabsl-dev
  libzip-dev libminizip-dev libarchive-dev pkg-config zip unzip libarchive-tools python3
  python3-matplotlib valgrind strace)
readonly docs_packages=(doxygen graphviz python3-sphinx furo python3-breathe python3-myst-parser)
readonly docs_test_packages=(chromium chromium-driver python3-selenium)
readonly screenshot_packages=(xvfb openbox xdotool zenity xterm imagemagick fonts-dejavu-core
  adwaita-icon-theme librsvg2-common)

header_compiles() { printf '#include <%s>\n' "$1" | "${CXX:-c++}" -x c++ -E - >/dev/null 2>&1; }

fuzzing_engine_links() {
  printf 'extern "C" int LLVMFuzzerTestOneInput(const char*, unsigned long) { return 0; }\n' |
    clang++ -fsanitize=fuzzer,address -x c++ - -o /dev/null 2>/dev/null
}

package_installed() {
  command -v dpkg-query >/dev/null &&
    [[ $(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null) == installed ]]
}

# Succeeds if the contents of the package are installed, by the package or in another way.
is_available() {
  case $1 in
    ninja-build) command -v ninja >/dev/null ;;
    g++) command -v "${CXX:-c++}" >/dev/null && command -v "${CC:-cc}" >/dev/null ;;
    libgtest-dev) package_installed "$1" || header_compiles gtest/gtest.h ;;
    libgmock-dev) package_installed "$1" || header_compiles gmock/gmock.h ;;
    libbenchmark-dev) package_installed "$1" || header_compiles benchmark/benchmark.h ;;
    nlohmann-json3-dev) package_installed "$1" || header_compiles nlohmann/json.hpp ;;
    libssl-dev) package_installed "$1" || header_compiles openssl/evp.h ;;
    libdeflate-dev) package_installed "$1" || header_compiles libdeflate.h ;;
    libcli11-dev) package_installed "$1" || header_compiles CLI/CLI.hpp ;;
    libclang-rt-dev) package_installed "$1" || fuzzing_engine_links ;;
    dpkg-dev) command -v dpkg-shlibdeps >/dev/null ;;
    locales) [[ -d /usr/share/i18n/locales ]] ;;
    xvfb) command -v Xvfb >/dev/null ;;
    libarchive-tools) command -v bsdtar >/dev/null ;;
    clang-14) command -v clang++-14 >/dev/null ;;
    g++-powerpc-linux-gnu) command -v powerpc-linux-gnu-g++-12 >/dev/null ;;
    qemu-user) command -v qemu-ppc >/dev/null ;;
    googletest) [[ -d /usr/src/googletest ]] ;;
    iwyu) command -v include-what-you-use >/dev/null ;;
    chromium-driver) command -v chromedriver >/dev/null ;;
    graphviz) command -v dot >/dev/null ;;
    imagemagick) command -v import >/dev/null ;;
    ca-certificates | debian-archive-keyring | furo | *-dev | python3-* | fonts-* | *-icon-theme | \
      librsvg2-common | musl | libc6-arm64-cross | llvm-14)
      package_installed "$1"
      ;;
    *) command -v "$1" >/dev/null ;;
  esac
}

is_debian_like() { command -v apt-get >/dev/null && command -v dpkg-query >/dev/null; }

as_root() {
  if ((EUID == 0)); then
    "$@"
  else
    sudo "$@"
  fi
}

may_install() {
  ((EUID == 0)) && return
  command -v sudo >/dev/null || return 1
  sudo -n true 2>/dev/null || { [[ -t 0 ]] && sudo -v; }
}

refresh_package_lists() {
  [[ -z ${package_lists_fresh:-} ]] || return 0
  # If one source fails, the others may still have the packages.
  quietly as_root apt-get -q update || true
  package_lists_fresh=yes
}

missing_of() {
  local name
  for name in "$@"; do
    is_available "$name" || printf '%s\n' "$name"
  done
}

# Installs those of the named packages that are missing.
need() {
  local missing
  mapfile -t missing < <(missing_of "$@")
  ((${#missing[@]})) || return 0

  is_debian_like ||
    die "this system has no apt-get: install the equivalents of Debian's ${missing[*]}," \
      "then run this again."
  may_install ||
    die "only root may install packages: run 'apt-get install ${missing[*]}' as root," \
      "then run this again."
  say "installing ${missing[*]}"
  refresh_package_lists
  quietly as_root env DEBIAN_FRONTEND=noninteractive \
    apt-get -q -y -o DPkg::Lock::Timeout=120 --no-install-recommends install "${missing[@]}" ||
    die "apt-get could not install ${missing[*]}: check the network and the package sources" \
      "(details: ${details_log#"$root"/}), then run this again."
}

# Like `need`, for optional packages: does nothing if packages cannot be installed.
need_where_possible() {
  [[ -n $(missing_of "$@") ]] && is_debian_like && may_install || return 0
  need "$@"
}

need_cmake() {
  need cmake
  local version
  version=$(cmake --version | sed -n 's/^cmake version \([0-9]*\.[0-9]*\).*/\1/p')
  [[ $(printf '%s\n' 3.25 "$version" | sort -V | head -1) == 3.25 ]] ||
    die "CMake 3.25 or newer is needed, found $version: install it, then run this again."
}
