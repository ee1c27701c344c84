#!/usr/bin/env python3
"""Runs the PostgreSQL tests against a server of their own: the back-end
unit tests (PgServer.*) and the page cases in pg/, those that stop the
server last. Exits 77 (skipped) when no server binaries are installed.

usage: postgres_test.py TOLM TOLM-PG TEST_DB
"""
import glob
import os
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)
from pgserver import PgServer  # noqa: E402


def main():
    tolm, companion, unit = (os.path.abspath(a) for a in sys.argv[1:4])
    if not PgServer.binaries():
        print("skipped: no PostgreSQL server binaries under /usr/lib/postgresql")
        return 77
    cases = sorted(glob.glob(os.path.join(HERE, "pg", "*.case")),
                   key=lambda c: ("env:PGSTOP" in open(c).read(), c))
    failed = []
    with PgServer() as pg:
        env = dict(os.environ, **pg.env, TOLM_TEST_PG="1", TOLM_PG=companion,
                   PGSTOP=pg.stop_command())
        run = subprocess.run([unit, "--gtest_filter=PgServer.*", "--gtest_brief=1"], env=env)
        if run.returncode:
            failed.append("unit tests")
        for case in cases:
            run = subprocess.run([sys.executable, os.path.join(HERE, "..", "run_page.py"), tolm,
                                  case], env=env, capture_output=True, text=True)
            print("%s: %s" % (os.path.basename(case), run.stdout.strip()))
            if run.returncode:
                failed.append(os.path.basename(case))
    if failed:
        print("FAILED: " + ", ".join(failed))
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
