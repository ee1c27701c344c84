#!/usr/bin/env python3
"""Checks that the reference documents every command keyword and every value
function the interpreter knows: each keyword of the keyword table needs a
heading in docs/commands.md that shows it as "<@keyword>", and each word of
the value-function table needs a heading (or a row of a table) in
docs/values.md that shows it as "$(word".

    coverage_test.py SOURCE_DIR
"""
import os
import re
import sys


def read(*parts):
    with open(os.path.join(*parts)) as f:
        return f.read()


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
    failed = [what for what, ok in checks if not ok]
    for what in failed:
        print("FAIL %s is not documented" % what)
    if len(keywords) < 40 or len(rows) < 40:
        failed.append("tables not found")
        print("FAIL found only %d keywords and %d value rows" % (len(keywords), len(rows)))
    print("%d passed, %d failed" % (len(checks) - len(failed), len(failed)))
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
