# `./dev fuzz`. Sourced by `dev`.

run_fuzz() {
  local name=${1:-} seconds=${2:-60}
  [[ -f fuzz/$name.cpp ]] || die "unknown fuzzer '$name': choose one of $(fuzzer_names)."
  need clang libclang-rt-dev
  set_up
  build_preset fuzz --target "vx_fuzz_$name"
  # New inputs are kept for the next run, next to the failing inputs.
  local found=$root/build/fuzz/$name
  mkdir -p "$found/corpus"
  local options=(-max_total_time="$seconds" -max_len=4096 -timeout=60 -print_final_stats=1
    -artifact_prefix="$found/")
  [[ ! -f fuzz/$name.dict ]] || options+=(-dict="fuzz/$name.dict")
  UBSAN_OPTIONS=print_stacktrace=1 \
    "build/fuzz/fuzz/vx_fuzz_$name" "${options[@]}" "$found/corpus" "$root/fuzz/corpus/$name"
}

fuzzer_names() {
  local source names=()
  for source in fuzz/*.cpp; do
    names+=("$(basename "$source" .cpp)")
  done
  printf '%s' "${names[*]}"
}
