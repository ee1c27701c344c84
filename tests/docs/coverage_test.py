#!/usr/bin/env python3
"""Checks that the reference documents every command keyword and every value
function the interpreter knows: each keyword of the keyword table needs a
heading in docs/commands.md that shows it as "<@keyword>", and each word of
the value-function table needs a heading (or a row of a table) in
docs/values.md that shows it as "$(word". Also checks that every relative
link of docs/*.md and README.md names an existing file and, after "#", one
of its headings (as Markdown renderers name them).

    coverage_test.py SOURCE_DIR
"""
import os
import re
import sys


def read(*parts):
    with open(os.path.join(*parts)) as f:
        return f.read()


def slug(heading):
    text = heading.strip().lower()
    text = re.sub(r"[^\w\- ]", "", text)
    return text.replace(" ", "-")


def anchors(path):
    with open(path) as f:
        text = re.sub(r"```.*?```", "", f.read(), flags=re.S)
    return {slug(m) for m in re.findall(r"^#+ (.*)$", text, re.M)}


def links(src):
    """(where, target) of each relative link in the documents and the README."""
    docs = os.path.join(src, "docs")
    files = [os.path.join(docs, f) for f in os.listdir(docs) if f.endswith(".md")]
    for path in files + [os.path.join(src, "README.md")]:
        with open(path) as f:
            text = re.sub(r"```.*?```", "", f.read(), flags=re.S)
        for target in re.findall(r"\]\(([^)\s]+)\)", text):
            if not re.match(r"[a-z]+:", target):
                yield path, target


def link_checks(src):
    checks = []
    for path, target in links(src):
        name, _, anchor = target.partition("#")
        dest = os.path.normpath(os.path.join(os.path.dirname(path), name)) if name else path
        ok = os.path.exists(dest) and (not anchor or anchor in anchors(dest))
        checks.append(("link %s in %s" % (target, os.path.basename(path)), ok))
    return checks


def main():
    src = sys.argv[1]
    table = read(src, "src", "page", "dispatch.cpp")
    keywords = re.findall(r'\{"(\w+)",\s*\d+\}', table)
    rows = re.findall(r'\{"((?:[^"\\]|\\.)+)",\s*(?:true|false),\s*row_\w+\}',
                      read(src, "src", "subst", "values.cpp"))
    rows = [r.replace("\\\\", "\\") for r in rows]
    commands = read(src, "docs", "commands.md")
    values = read(src, "docs", "values.md")
    titles = "\n".join(l for l in commands.split("\n") if l.startswith("#"))
    shown = "\n".join(l for l in values.split("\n") if l.startswith(("#", "|")))
    checks = [("command <@%s>" % k, "<@%s>" % k in titles) for k in keywords]
    checks += [("value $(%s" % r, "$(" + r in shown) for r in rows]
    checks += link_checks(src)
    failed = [what for what, ok in checks if not ok]
    for what in failed:
        print("FAIL %s: not documented or not found" % what)
    if len(keywords) < 40 or len(rows) < 40:
        failed.append("tables not found")
        print("FAIL found only %d keywords and %d value rows" % (len(keywords), len(rows)))
    print("%d passed, %d failed" % (len(checks) - len(failed), len(failed)))
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
