# SPDX-License-Identifier: MIT
#
# Configuration of the documentation site: see `./dev docs`.

import pathlib
import re

from docutils import nodes
from sphinx import addnodes
from sphinx.util.nodes import make_refnode

root = pathlib.Path(__file__).resolve().parent.parent

project = "vx"
release = version = re.search(
    r"project\(vx VERSION (\S+)", (root / "CMakeLists.txt").read_text(encoding="utf-8")
).group(1)
html_title = f"vx {version}"

extensions = ["breathe", "myst_parser", "sphinx.ext.graphviz"]
exclude_patterns = ["*-table.md"]
myst_heading_anchors = 3
nitpicky = True
nitpick_ignore_regex = [("cpp:identifier", r"std(::.*)?|FILE|vx(::fs|::os)?|Interface|Parts")]

breathe_projects = {"vx": str(root / "build/docs/xml")}
breathe_default_project = "vx"
breathe_default_members = ("members",)
breathe_show_include = False
primary_domain = "cpp"
highlight_language = "none"
smartquotes = False  # quoted texts are meant to the letter

graphviz_output_format = "svg"
graphviz_dot_args = ["-Gbgcolor=transparent", "-Gfontname=sans-serif", "-Nfontname=sans-serif",
                     "-Efontname=sans-serif", "-Nshape=box", "-Gfontsize=10", "-Nfontsize=10",
                     "-Efontsize=9"]

html_theme = "furo"
html_static_path = ["_static", "/usr/share/javascript/normalize.css/normalize.min.css"]
html_favicon = "_static/icon.svg"
html_css_files = ["vx.css"]
html_js_files = [("scripts/gumshoe-patched.js", {"priority": 100})]
html_copy_source = False
html_show_sphinx = False
html_use_index = False


def unwrap_rules(app, doctree):
    """Shows the rules of a family as text of its page, not as the description of a name."""
    for description in list(doctree.findall(addnodes.desc)):
        if description["objtype"] == "group":
            content = description.next_node(addnodes.desc_content)
            description.replace_self(content.children)


def public_names(env):
    """The places of the documented names, by each qualified form, such as `Path::join`."""
    places = {}
    for name, _, kind, document, anchor, _ in env.domains["cpp"].get_objects():
        if kind in ("functionParam", "templateParam"):
            continue
        parts = name.split("::")
        for first in range(len(parts)):
            places.setdefault("::".join(parts[first:]), {})[name] = (document, anchor)
    return places


def place_of(candidates, document):
    """The place that a name means on the page `document`; none if that is not clear."""
    here = [place for place in candidates.values() if place[0] == document]
    in_fs = [place for name, place in candidates.items() if name.startswith("vx::fs::")]
    for places in (here, list(candidates.values()), in_fs):
        if len(places) == 1:
            return places[0]
    return None


def link_names(app, doctree, document):
    """Links each public name in code font, such as `copyFile`, with its description."""
    names = public_names(app.env)
    for literal in list(doctree.findall(nodes.literal)):
        if isinstance(literal.parent, nodes.reference):
            continue
        name = re.sub(r"\(.*", "", literal.astext())
        place = place_of(names.get(name, {}), document)
        if place:
            literal.replace_self(make_refnode(app.builder, document, *place, literal.deepcopy()))


def complete_theme(app, error):
    """Does what Debian's package of the theme lacks.

    Its script is not bundled, its style refers to a file outside of the site, and the compiled
    style lacks the rules for a system in dark mode.
    """
    if error:
        return
    static = pathlib.Path(app.outdir) / "_static"
    script = static / "scripts/furo.js"
    code = script.read_text(encoding="utf-8")
    script.write_text(re.sub(r"\Aimport .*\n", "", code), encoding="utf-8")

    style = static / "styles/furo.css"
    rules = style.read_text(encoding="utf-8")
    rules = rules.replace("/javascript/normalize.css/normalize.css", "../normalize.min.css")
    if "prefers-color-scheme" not in rules:
        dark = re.search(r'body\[data-theme="dark"\] (\{.*?\})', rules, re.S)[1]
        selector = 'body:not([data-theme="light"])'
        rules += f"@media (prefers-color-scheme: dark) {{ {selector} {dark} }}\n"
    style.write_text(rules, encoding="utf-8")


def setup(app):
    app.connect("doctree-read", unwrap_rules)
    app.connect("build-finished", complete_theme)
    app.connect("doctree-resolved", link_names)
    return {"parallel_read_safe": True, "parallel_write_safe": True}
