#!/usr/bin/env python3
"""Long walks: an "sql" block over 1,000,000 rows of 3 columns, on SQLite and
on PostgreSQL (through the companion), with the rows per second and the
interpreter's peak memory, which must not grow with the result.

usage: sql_walk.py TOLM [ROWS]
"""
import os
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "tests", "db"))
from pgserver import PgServer  # noqa: E402

PAGE = """<@set> X_BASE %s
<@sql> %s
<@if> cmp $(i) == %d
walked $(i) $(d) $(t)
<@end>
<@end>
"""
SQLITE = ("select i, i * 2 as d, 'row ' || i as t from (with recursive n(i) as "
          "(select 1 union all select i + 1 from n where i < %d) select i from n)")
PG = "select i, i * 2 as d, 'row ' || i as t from generate_series(1, %d) as i"


def walk(tolm, env, tmp, base, query, rows):
    page = os.path.join(tmp, "walk.html")
    with open(page, "w") as f:
        f.write(PAGE % (base, query % rows, rows))
    # /usr/bin/time reports the peak of the interpreter alone (a child of this
    # script would count the script's own memory from before its exec).
    timer = ["/usr/bin/time", "-f", "%M", "-o", os.path.join(tmp, "rss")]
    if not os.access(timer[0], os.X_OK):
        timer = []
    t = time.perf_counter()
    run = subprocess.run(timer + [tolm, page], env=env, capture_output=True, text=True)
    took = time.perf_counter() - t
    ok = run.returncode == 0 and ("walked %d %d row %d" % (rows, 2 * rows, rows)) in run.stdout
    rss = int(open(os.path.join(tmp, "rss")).read().split()[-1]) if timer else -1
    return ok, rows / took, rss


def main():
    tolm = os.path.abspath(sys.argv[1])
    counts = [int(sys.argv[2])] if len(sys.argv) > 2 else [10000, 1000000]
    with tempfile.TemporaryDirectory() as tmp:
        env = dict(os.environ, X_HOME=tmp, TMP_DIR=tmp)
        runs = [("SQLite", "sqlite::memory:", SQLITE, env)]
        pg = PgServer().start() if PgServer.binaries() else None
        if pg:
            runs.append(("PostgreSQL", "pg:", PG, dict(env, **pg.env)))
        failed = False
        try:
            print("sql block walks: rows/s, interpreter peak memory")
            for name, base, query, e in runs:
                for rows in counts:
                    ok, rate, rss = walk(tolm, e, tmp, base, query, rows)
                    failed |= not ok
                    print("  %-10s %8d rows %10.0f rows/s %7d KiB%s"
                          % (name, rows, rate, rss, "" if ok else "  FAILED"))
        finally:
            if pg:
                pg.stop()
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
