# `./dev docs` and `./dev screenshots`. Sourced by `dev`.

run_docs() {
  local site=$root/build/docs/html
  need "${docs_packages[@]}"
  mkdir -p build/docs
  rm -rf build/docs/xml
  doxygen docs/Doxyfile || die "doxygen reports the warnings above."
  # Breathe shows the members of a group by their unqualified names.
  sed -i '/<name>/{N;s|<name>.*</name>\n *<qualifiedname>\(.*\)</qualifiedname>|<name>\1</name>|}' \
    build/docs/xml/group__*.xml
  # -E: Sphinx does not detect changed headers.
  sphinx-build -q -W --keep-going -E -b html -d build/docs/doctrees docs "$site" ||
    die "sphinx reports the warnings above."
  if [[ ${1:-} == --test ]]; then
    need "${docs_test_packages[@]}"
    /usr/bin/python3 -B scripts/docs/test_site.py "$site" build/docs/screenshots ||
      die "the site has the problems above."
  fi
  say "${site#"$root"/}/index.html"
}

run_screenshots() {
  need "${screenshot_packages[@]}"
  set_up "${example_packages[@]}"
  build_preset demo
  scripts/take_screenshots "$root/build/demo/tools/ksz/ksz"
}
