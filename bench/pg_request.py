#!/usr/bin/env python3
"""The cost of PostgreSQL per request: a Tolm run whose page makes one query
(interpreter start, companion start, connection, query, exit) against the
same connection and query from pg_one, a small program linked with libpq,
and against a Tolm run that uses no database. Against a server of its own.
Wall times follow the machine's load; the CPU times (the run with its
companion) show the companion's own cost.

usage: pg_request.py TOLM PG_ONE [RUNS]
"""
import os
import resource
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "tests", "db"))
from pgserver import PgServer  # noqa: E402

QUERY = "select count(*) as n from pg_class"


def cpu():
    r = resource.getrusage(resource.RUSAGE_CHILDREN)
    return r.ru_utime + r.ru_stime


def per_run(args, env, runs):
    """Best wall time and best CPU time (the run and its companion) per run, ms."""
    subprocess.run(args, env=env, stdout=subprocess.DEVNULL, check=True)  # warm up
    wall, used = [], []
    for _ in range(3):
        t, c = time.perf_counter(), cpu()
        for _ in range(runs):
            subprocess.run(args, env=env, stdout=subprocess.DEVNULL, check=True)
        wall.append((time.perf_counter() - t) / runs * 1000)
        used.append((cpu() - c) / runs * 1000)
    return min(wall), min(used)


def main():
    tolm, pg_one = os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2])
    runs = int(sys.argv[3]) if len(sys.argv) > 3 else 100
    if not PgServer.binaries():
        print("pg_request: skipped, no PostgreSQL server binaries")
        return 0
    with tempfile.TemporaryDirectory() as tmp, PgServer() as pg:
        env = dict(os.environ, **pg.env, X_HOME=tmp, TMP_DIR=tmp)
        with_db = os.path.join(tmp, "db.html")
        with open(with_db, "w") as f:
            f.write("<@set> X_BASE pg:\n<@sql> %s\n$(n)\n<@end>\n" % QUERY)
        no_db = os.path.join(tmp, "plain.html")
        with open(no_db, "w") as f:
            f.write("$(X_DT)\n")
        out = subprocess.run([tolm, with_db], env=env, capture_output=True, text=True)
        if not out.stdout.strip().isdigit():
            print("pg_request: the page failed: %r %r" % (out.stdout, out.stderr))
            return 1
        plain = per_run([tolm, no_db], env, runs)
        tolm_pg = per_run([tolm, with_db], env, runs)
        libpq = per_run([pg_one, QUERY], env, runs)
    print("PostgreSQL per request, best of 3 x %d runs, ms (wall; CPU of the client side):"
          % runs)
    for name, (w, c) in (("Tolm, no database", plain), ("Tolm + tolm-pg, one query", tolm_pg),
                         ("pg_one (libpq), one query", libpq)):
        print("  %-30s %7.2f  %6.2f" % (name, w, c))
    print("  %-30s %7.2f  %6.2f  (Tolm+tolm-pg - no database - pg_one)"
          % ("companion's cost over libpq", tolm_pg[0] - plain[0] - libpq[0],
             tolm_pg[1] - plain[1] - libpq[1]))
    return 0


if __name__ == "__main__":
    sys.exit(main())
