#!/usr/bin/env python3
"""Runs one page case against the interpreter and compares what it printed.

A case file holds sections, each opened by a line "--- KIND [ARG] [noeol]":

  file NAME      a file written into the case's scratch directory (pages,
                 x.config, x.env, data); the first *.html file is the
                 default page
  args           the command line after the program name, one word a line
                 (default: the default page)
  env            NAME=value lines added to the environment; a line -NAME
                 removes NAME
  stdin          the standard input
  before, after  shell commands run in the scratch directory around the run
  expect         the exact standard output
  expect-re      a regular expression that must match the whole output
                 (its own last line break is not part of it: write \n)
  expect-file NAME   the exact content of a file after the run
  status         the exit status (default 0)
  stack KIB      the run's stack limit, in KiB

Lines before the first section are a description. Every section ends with
the line break before the next one unless "noeol" is given. In every section
{TMP} stands for the scratch directory, {CR} for a carriage return,
{X:hh} for the single byte hh (also where it is not valid UTF-8) and
{R:n:hh} for that byte n times.
The run gets a clean environment: PATH, LANG=C, TZ=UTC, X_HOME and TMP_DIR
set to the scratch directory, then the case's own variables.
"""
import os
import re
import resource
import subprocess
import sys
import tempfile


def parse(path):
    sections = []
    current = None
    with open(path, encoding="utf-8", newline="") as f:
        lines = f.read().split("\n")
    for line in lines[:-1] if lines and lines[-1] == "" else lines:
        if line.startswith("--- "):
            words = line[4:].split()
            noeol = "noeol" in words
            words = [w for w in words if w != "noeol"]
            current = {"kind": words[0], "arg": " ".join(words[1:]), "noeol": noeol,
                       "lines": []}
            sections.append(current)
        elif current is not None:
            current["lines"].append(line)
    for s in sections:
        text = "\n".join(s["lines"])
        if s["lines"] and not s["noeol"]:
            text += "\n"
        s["text"] = text
    return sections


def fill(text, tmp):
    text = text.replace("{TMP}", tmp).replace("{CR}", "\r")
    text = re.sub(r"\{R:(\d+):([0-9a-fA-F]{2})\}",
                  lambda m: bytes([int(m.group(2), 16)]).decode("utf-8", "surrogateescape")
                  * int(m.group(1)), text)
    # {X:hh} is the single byte hh, also where it is not valid UTF-8.
    return re.sub(r"\{X:([0-9a-fA-F]{2})\}",
                  lambda m: bytes([int(m.group(1), 16)]).decode("utf-8", "surrogateescape"), text)


def main():
    prog, case = os.path.abspath(sys.argv[1]), sys.argv[2]
    sections = parse(case)
    with tempfile.TemporaryDirectory(prefix="tolm-page-") as tmp:
        tmp = os.path.realpath(tmp)
        files = [s for s in sections if s["kind"] == "file"]
        for s in files:
            target = os.path.join(tmp, s["arg"])
            os.makedirs(os.path.dirname(target), exist_ok=True)
            with open(target, "wb") as f:
                f.write(fill(s["text"], tmp).encode("utf-8", "surrogateescape"))
        env = {"PATH": os.environ.get("PATH", "/usr/bin:/bin"), "LANG": "C", "TZ": "UTC",
               "X_HOME": tmp, "TMP_DIR": tmp}
        # A database server started by the test driver is reached through these.
        env.update((k, v) for k, v in os.environ.items() if k.startswith("PG"))
        pages = [s["arg"] for s in files if s["arg"].endswith(".html")] or [s["arg"] for s in files]
        args = pages[:1]
        stdin = b""
        expect_status = 0
        limit_stack = None
        for s in sections:
            text = fill(s["text"], tmp)
            if s["kind"] == "args":
                args = [a for a in text.split("\n")]
                if args and args[-1] == "":
                    args.pop()
            elif s["kind"] == "env":
                for line in text.splitlines():
                    name, _, value = line.partition("=")
                    if name.startswith("-"):
                        env.pop(name[1:], None)
                    else:
                        env[name] = value
            elif s["kind"] == "stdin":
                stdin = text.encode("utf-8", "surrogateescape")
            elif s["kind"] == "status":
                expect_status = int(text.strip())
            elif s["kind"] == "stack":
                limit_stack = int(s["arg"]) << 10

        def limits():
            if limit_stack is not None:
                hard = resource.getrlimit(resource.RLIMIT_STACK)[1]
                resource.setrlimit(resource.RLIMIT_STACK, (limit_stack, hard))
        for s in sections:
            if s["kind"] == "before":
                subprocess.run(["sh", "-c", fill(s["text"], tmp)], cwd=tmp, env=env, check=True)
        try:
            run = subprocess.run([prog] + args, cwd=tmp, env=env, input=stdin,
                                 capture_output=True, timeout=30, preexec_fn=limits)
        except subprocess.TimeoutExpired:
            print("FAIL: the run did not end within 30 seconds")
            return 1
        for s in sections:
            if s["kind"] == "after":
                subprocess.run(["sh", "-c", fill(s["text"], tmp)], cwd=tmp, env=env)
        out = run.stdout.decode("utf-8", "surrogateescape")
        failed = []
        if run.returncode != expect_status:
            failed.append("exit status %d, expected %d" % (run.returncode, expect_status))
        for s in sections:
            want = fill(s["text"], tmp)
            if s["kind"] == "expect" and out != want:
                failed.append("output differs:\n--- expected\n%s--- got\n%s---" % (want, out))
            elif s["kind"] == "expect-re" and not re.fullmatch(want.rstrip("\n"), out, re.S):
                failed.append("output does not match:\n--- pattern\n%s--- got\n%s---" % (want, out))
            elif s["kind"] == "expect-file":
                path = os.path.join(tmp, s["arg"])
                try:
                    with open(path, "rb") as f:
                        got = f.read().decode("utf-8", "surrogateescape")
                except OSError as e:
                    got = "<%s>" % e
                if got != want:
                    failed.append("file %s differs:\n--- expected\n%s--- got\n%s---"
                                  % (s["arg"], want, got))
        if run.stderr:
            sys.stdout.write("stderr:\n" + run.stderr.decode("utf-8", "replace"))
        if failed:
            print("FAIL: " + "\n".join(failed))
            return 1
        print("ok")
        return 0


if __name__ == "__main__":
    sys.exit(main())
