# `./dev demo`. Sourced by `dev`.

run_demo() {
  set_up "${example_packages[@]}"
  build_preset demo
  local ksz=$root/build/demo/tools/ksz/ksz files=("$@")
  ((${#files[@]})) || files=("$root"/tools/ksz/scene/*.ks[xa] "$root"/tools/ksz/scene/res/*)
  make_work_dir "${TMPDIR:-/tmp}/vx-demo.XXXXXX"

  say "packing ${#files[@]} files"
  (cd -- "$caller_dir" && "$ksz" pack "$work_dir/scene.ksz" -- "${files[@]}")
  say "extracting the archive"
  "$ksz" unpack "$work_dir/scene.ksz"
  [[ ! -f $work_dir/scene.ksx ]] || show_references "$ksz" "$work_dir/scene.ksx"
}

# Resolves the references of an extracted scene against its directory.
show_references() {
  local ksz=$1 scene=$2 reference file status=0
  say "resolving the references of ${scene##*/}"
  while IFS= read -r reference; do
    if file=$("$ksz" resolve "$reference" --in "${scene%/*}" --ext png jpg); then
      printf '  %s -> %s\n' "$reference" "$file"
    else
      status=1
    fi
  done < <(grep -oE '(image|asset)="[^"]*"' "$scene" | cut -d '"' -f 2)
  return "$status"
}
