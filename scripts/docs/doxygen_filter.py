#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Prints a header with the commands that Doxygen requires in comments.

- The comment at the top describes a group named after the header, such as vx_path. If the header
  has no families, its declarations are members of this group.
- A banner, `// ---- Copy and move ----`, starts a family: the group copy_and_move, described by the
  rest of the comment.
- Indented lines become code blocks. A list ends at the first line without indentation.
- The path of a page in docs/ becomes a link.
- The comment on the first of consecutive `using` declarations is repeated for each.
- Deleted overloads, definitions outside of classes and specializations of standard templates are
  omitted.
"""

import pathlib
import re
import sys

BANNER = re.compile(r"// -{4} (.+?) -{4,}$")
LIST_ITEM = re.compile(r"(-|\d+\.) ")


def group_name(title):
    return re.sub(r"\W+", "_", title.lower()).strip("_")


def blank_lines(match):
    return "\n" * match.group().count("\n")


def without_noise(text):
    deleted = r"(^ *///[^\n]*\n)*^ *template <[^\n]*>\n[^;]*?= delete;\n"
    text = re.sub(deleted, blank_lines, text, flags=re.M)
    text = re.sub(r"^template <>\n.*?^};\n", blank_lines, text, flags=re.M | re.S)
    text = re.sub(r"^struct \w+::\w+ final.*?^};\n", blank_lines, text, flags=re.M | re.S)
    return re.sub(r"^inline .*?(\{\}|^\})\n", blank_lines, text, flags=re.M | re.S)


def escaped(line):
    """Escapes markup characters, except in `code`. Doxygen copies quoted text as it is."""
    parts = re.split(r"(`[^`]*`)", line)
    for at in range(0, len(parts), 2):
        plain = re.split(r'("[^"]*")', parts[at])
        markup = r"%|<(?=\w)|\\(?=\w)|\*|(?<!\w)_"
        plain[::2] = [re.sub(markup, r"\\\g<0>", text) for text in plain[::2]]
        parts[at] = re.sub(r"docs/(\S+)\.md", r"[\g<0>](../\1.html)", "".join(plain))
    return "".join(parts)


def code_language(lines):
    return ".cpp" if any(line.endswith((";", "{", "...")) for line in lines) else ".txt"


def marked_up(lines):
    """Converts the lines of a comment, without slashes, to Doxygen's markup."""
    result, code = [], []
    continues = False  # inside a list item or a command, whose continuation lines are indented

    def end_code():
        if code:
            while not code[-1]:
                code.pop()
            result.extend(["", f"@code{{{code_language(code)}}}", *code, "@endcode", ""])
            code.clear()

    for line in lines:
        indented = line.startswith("  ")
        if code and (indented or not line):
            code.append(line)
        elif indented and not continues:
            code.append(line)
        else:
            end_code()
            is_item = LIST_ITEM.match(line) is not None
            if result and result[-1] and not indented and is_item != continues:
                result.append("")
            if not indented:
                continues = is_item or "@return" in line or "@param" in line
            result.append(escaped(line))
    end_code()
    return result


def comment(lines, indent=""):
    return [f"{indent}/// {line}".rstrip() for line in lines]


def text_of(line, slashes):
    return line.strip()[len(slashes) :].removeprefix(" ")


def without_licence(head):
    return head[2:] if head and head[0].startswith("SPDX") else head


def filtered(header, text):
    lines = without_noise(text).split("\n")
    has_families = any(BANNER.match(line) for line in lines)
    in_group = False
    result = []
    at = 0

    def take(slashes):
        nonlocal at
        taken = []
        while lines[at].strip().startswith(slashes):
            taken.append(text_of(lines[at], slashes))
            at += 1
        return taken

    head = marked_up(without_licence(take("//")))
    result += ["/// @file", "", f"/// @defgroup {header.stem} {header.name}", *comment(head), ""]

    while at < len(lines):
        line = lines[at]
        banner = BANNER.match(line)
        if banner:
            if in_group:
                result += ["/** @} */", ""]
            at += 1
            rules = marked_up(take("//"))
            title = banner.group(1)
            result += [f"/// @defgroup {group_name(title)} {title}", *comment(rules), "/// @{", ""]
            in_group = True
        elif line.strip().startswith("///"):
            indent = line[: len(line) - len(line.lstrip())]
            text = comment(marked_up(take("///")), indent)
            result += text
            # Repeats the comment on the first of several types for each.
            while re.match(r" *using \w+ = .*;$", lines[at]) and "using" in lines[at + 1]:
                result += [lines[at], *text]
                at += 1
        elif re.match(r"namespace vx\S* \{$", line):
            result.append(line)
            if not has_families:
                result += ["", f"/** @addtogroup {header.stem}", " * @{ */"]
                in_group = True
            at += 1
        elif re.match(r"\}  // namespace vx", line):
            if in_group:
                result += ["/** @} */"]
                in_group = False
            result.append(line)
            at += 1
        else:
            result.append(line)
            at += 1
    return "\n".join(result)


def main():
    header = pathlib.Path(sys.argv[1])
    print(filtered(header, header.read_text(encoding="utf-8")), end="")


if __name__ == "__main__":
    main()
