"""Runs one fuzz target: run.py BINARY TARGET_DIR SECONDS [--corpus C] [--timeout T].

Runs BINARY for SECONDS on the seeds in TARGET_DIR/seeds with the dictionary
TARGET_DIR/NAME.dict. New inputs go to CORPUS (default: a scratch directory
that is removed afterwards), failing inputs to artifacts/NAME-* beside BINARY.
Prints one line "NAME: N runs, cov C, ft F" and exits non-zero when the
target found a failure (crash, leak, an input running over T seconds,
default 1).
"""
import argparse
import os
import re
import shutil
import subprocess
import sys
import tempfile


def main(binary, target_dir, seconds, corpus=None, timeout=1):
    # Absolute paths: the targets change their working directory.
    binary, target_dir = os.path.abspath(binary), os.path.abspath(target_dir)
    name = os.path.basename(os.path.normpath(target_dir))
    scratch = None
    if corpus is None:
        scratch = corpus = tempfile.mkdtemp(prefix="tolm-fuzz-corpus.")
    corpus = os.path.abspath(corpus)
    os.makedirs(corpus, exist_ok=True)
    artifacts = os.path.join(os.path.dirname(os.path.abspath(binary)), "artifacts")
    os.makedirs(artifacts, exist_ok=True)
    cmd = [binary, "-max_total_time=%s" % seconds, "-timeout=%s" % timeout,
           "-rss_limit_mb=2048", "-max_len=16384", "-print_final_stats=1",
           "-artifact_prefix=%s/%s-" % (artifacts, name), corpus,
           os.path.join(target_dir, "seeds")]
    d = os.path.join(target_dir, name + ".dict")
    if os.path.exists(d):
        cmd.insert(1, "-dict=" + d)
    env = dict(os.environ, UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1")
    try:
        p = subprocess.run(cmd, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, env=env)
    finally:
        if scratch:
            shutil.rmtree(scratch, ignore_errors=True)
    err = p.stderr.decode("utf-8", "replace")
    runs = re.findall(r"stat::number_of_executed_units:\s*(\d+)", err)
    cov = re.findall(r"cov: (\d+) ft: (\d+)", err)
    print("%s: %s runs, cov %s, ft %s" % (name, runs[-1] if runs else "?",
                                          cov[-1][0] if cov else "?", cov[-1][1] if cov else "?"))
    if p.returncode != 0:
        sys.stderr.write(err[-20000:])
        print("%s: FAILED (exit %d), inputs in %s" % (name, p.returncode, artifacts))
    return p.returncode


if __name__ == "__main__":
    ap = argparse.ArgumentParser()
    ap.add_argument("binary")
    ap.add_argument("target_dir")
    ap.add_argument("seconds", type=int)
    ap.add_argument("--corpus")
    ap.add_argument("--timeout", type=int, default=1)
    a = ap.parse_args()
    sys.exit(main(a.binary, a.target_dir, a.seconds, a.corpus, a.timeout))
