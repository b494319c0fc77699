# `./dev bench` and `./dev counts`. Sourced by `dev`.

run_bench() {
  local report=bench/report.py
  if [[ ${1:-} == --growth ]]; then
    report=bench/growth.py
    shift
  fi
  set_up "${bench_packages[@]}"
  build_preset bench
  # Debian's package of matplotlib is installed for the system's Python only.
  /usr/bin/python3 -B "$report" --programs build/bench/bench --out build/bench/report "$@"
}

run_counts() {
  set_up "${example_packages[@]}" "${test_packages[@]}" valgrind strace
  build_preset debug --target vx_counts
  python3 -B scripts/counts.py "$@" build/debug/bench/counts/vx_counts
}
