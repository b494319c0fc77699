# `./dev docs` and `./dev screenshots`. Read by `dev`.

run_docs() {
  need doxygen graphviz
  rm -rf build/docs
  mkdir -p build/docs
  doxygen docs/Doxyfile || die "doxygen reports the warnings above."
  say "build/docs/html/index.html"
}

run_screenshots() {
  need "${screenshot_packages[@]}"
  set_up "${example_packages[@]}"
  build_preset demo
  scripts/take_screenshots "$root/build/demo/tools/ksz/ksz"
}
