#!/usr/bin/env python3
"""Runs every example of a Markdown document through the interpreter and
compares what it prints with the output the document shows.

    docs_test.py path/to/Tolm docs/FILE.md [--update]

An example is a fenced block whose info string begins with "page", followed
(after any prose) by a fenced block "output". Before the page, blocks "file
NAME" add files and a block "stdin" gives the standard input:

    ```file x.config           written into the example's directory
    ```stdin [crlf]            standard input of the run (crlf: lines end in CR LF)
    ```page [WORD...]          the page, saved as page.html and run
    ```output [status=N] [noeol]   the exact standard output (exit status N,
                               default 0; noeol: without the last line break)
    ```stderr                  right after the output: the exact standard error
                               (without this block it must stay empty)

The words after "page" (shell quoting) are NAME=value settings for the
environment when NAME is upper case, else command-line arguments put after
page.html (or in place of it when one of them is page.html). Each example
runs in a fresh directory that is also X_HOME and TMP_DIR, with LANG=C and
TZ=UTC. Carriage returns are dropped from the output, and the directory's
path is shown as /srv/site. With --update the output blocks are rewritten
with what the program printed (for writing documents, never in tests).
"""
import os
import re
import shlex
import subprocess
import sys
import tempfile

SITE = "/srv/site"
FENCE = re.compile(r"^```(\S*)\s*(.*)$")
ENV_WORD = re.compile(r"^[A-Z_][A-Z0-9_]*=")


def blocks(lines):
    """Yields (kind, words, first body line index, end index) of each fenced block."""
    i = 0
    while i < len(lines):
        m = FENCE.match(lines[i])
        if not m:
            i += 1
            continue
        j = i + 1
        while j < len(lines) and lines[j].rstrip() != "```":
            j += 1
        yield m.group(1), m.group(2), i + 1, j
        i = j + 1


def examples(lines):
    """Groups the blocks into examples:
    (line, files, stdin, page, words, output block, stderr text)."""
    found = list(blocks(lines))
    files, stdin, page = [], "", None
    for n, (kind, words, start, end) in enumerate(found):
        body = "".join(l + "\n" for l in lines[start:end])
        if kind == "file":
            files.append((words.strip(), body))
        elif kind == "stdin":
            stdin = body.replace("\n", "\r\n") if "crlf" in words.split() else body
        elif kind == "page":
            if page:
                yield page + (None, "")
            page = (start, files, stdin, body, words)
            files, stdin = [], ""
        elif kind == "output" and page:
            err = ""
            if n + 1 < len(found) and found[n + 1][0] == "stderr":
                s, e = found[n + 1][2:]
                err = "".join(l + "\n" for l in lines[s:e])
            yield page + ((words, start, end), err)
            page = None
    if page:
        yield page + (None, "")


def run(tolm, files, stdin, body, words):
    with tempfile.TemporaryDirectory(prefix="tolm-doc-") as tmp:
        tmp = os.path.realpath(tmp)
        for name, text in files + [("page.html", body)]:
            path = os.path.join(tmp, name)
            os.makedirs(os.path.dirname(path), exist_ok=True)
            with open(path, "w") as f:
                f.write(text.replace(SITE, tmp))
        env = {"PATH": os.environ.get("PATH", "/usr/bin:/bin"), "LANG": "C", "TZ": "UTC",
               "X_HOME": tmp, "TMP_DIR": tmp}
        # The sanitizer build's settings (no leak check in forked children).
        env.update((k, v) for k, v in os.environ.items() if k.endswith("SAN_OPTIONS"))
        args = []
        for w in shlex.split(words.replace(SITE, tmp)):
            if ENV_WORD.match(w):
                name, _, value = w.partition("=")
                env[name] = value
            else:
                args.append(w)
        if "page.html" not in args:
            args.insert(0, "page.html")
        try:
            r = subprocess.run([tolm] + args, cwd=tmp, env=env, input=stdin.encode(),
                               capture_output=True, timeout=20)
        except subprocess.TimeoutExpired:
            return None, "", "the run did not end within 20 seconds"
        out = r.stdout.decode("utf-8", "replace").replace("\r", "").replace(tmp, SITE)
        err = r.stderr.decode("utf-8", "replace").replace(tmp, SITE)
        return r.returncode, out, err


def main():
    tolm, doc = os.path.abspath(sys.argv[1]), sys.argv[2]
    update = "--update" in sys.argv[3:]
    with open(doc) as f:
        lines = f.read().split("\n")
    passed = failed = 0
    edits = []
    for line, files, stdin, body, words, output, want_err in examples(lines):
        where = "%s:%d" % (os.path.basename(doc), line)
        if output is None:
            print("FAIL %s: a page example without an output block" % where)
            failed += 1
            continue
        owords, ostart, oend = output
        m = re.search(r"status=(-?\d+)", owords)
        want_status = int(m.group(1)) if m else 0
        want = "".join(l + "\n" for l in lines[ostart:oend])
        if "noeol" in owords.split():
            want = want[:-1]
        status, out, err = run(tolm, files, stdin, body, words)
        problems = []
        if status != want_status:
            problems.append("exit status %s, expected %d" % (status, want_status))
        if out != want:
            problems.append("output differs:\n--- shown\n%s--- printed\n%s---" % (want, out))
        if err != want_err:
            problems.append("standard error:\n--- shown\n%s--- printed\n%s---" % (want_err, err))
        if update and out != want:
            edits.append((ostart, oend, out))
        if problems:
            print("FAIL %s: %s" % (where, "\n".join(problems)))
            failed += 1
        else:
            passed += 1
    if update and edits:
        for start, end, out in reversed(edits):
            text = out if out.endswith("\n") or not out else out + "\n"
            lines[start:end] = text.split("\n")[:-1]
        with open(doc, "w") as f:
            f.write("\n".join(lines))
    print("%d passed, %d failed" % (passed, failed))
    return 1 if failed or not passed else 0


if __name__ == "__main__":
    sys.exit(main())
