#!/usr/bin/env python3
"""The cost of a session per whole run: the same page from the shell with
and without a session, side by side in one hyperfine -N run.

Usage: session_run.py TOLM [RUNS]

The page changes 10 variables on every run. With "<@session> start" first
they are session variables: loaded from the SQLite store (the session's id
comes in HTTP_COOKIE, as a browser would send it) and saved changed at the
end. The report gives both medians, the difference (the aim is under
0.2 ms) and the ratio, with the load average around the measurement.
"""
import json
import os
import sqlite3
import subprocess
import sys
import tempfile

VARS = 10
PAGE = "".join("<@S_v%d>++\n" % i for i in range(VARS)) + \
    " ".join("$(S_v%d)" % i for i in range(VARS)) + "\n"


def loadavg():
    with open("/proc/loadavg") as f:
        return " ".join(f.read().split()[:3])


def main():
    tolm = os.path.abspath(sys.argv[1])
    runs = int(sys.argv[2]) if len(sys.argv) > 2 else 300
    with tempfile.TemporaryDirectory(prefix="tolm-bench-") as tmp:
        with open(os.path.join(tmp, "x.config"), "w") as f:
            f.write("shell:00 %s bench\n" % tmp)
        plain, session = os.path.join(tmp, "plain.html"), os.path.join(tmp, "session.html")
        with open(plain, "w") as f:
            f.write(PAGE)
        with open(session, "w") as f:
            f.write("<@session> start\n" + PAGE)
        env = {"PATH": os.environ.get("PATH", "/usr/bin:/bin"), "LANG": "C", "X_HOME": tmp,
               "TMP_DIR": tmp}
        # A first run makes the session; later runs send its id back.
        subprocess.run([tolm, session], env=env, check=True, capture_output=True)
        with sqlite3.connect(os.path.join(tmp, "sessions-shell_00.db")) as db:
            (sid,), = db.execute("SELECT sid FROM tolm_sessions").fetchall()
        env["HTTP_COOKIE"] = "tolm_sid=" + sid
        before = subprocess.run([tolm, session], env=env, check=True,
                                capture_output=True).stdout.split()[-1]
        report = os.path.join(tmp, "hf.json")
        print("load average before: " + loadavg())
        subprocess.run(["hyperfine", "-N", "--style", "none", "--warmup", "20", "--runs",
                        str(runs), "--export-json", report, tolm + " " + plain,
                        tolm + " " + session],
                       env=env, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        print("load average after: " + loadavg())
        after = subprocess.run([tolm, session], env=env, check=True,
                               capture_output=True).stdout.split()[-1]
        if int(after) <= int(before) + runs:
            sys.exit("the session page did not keep its values: %s, then %s" % (before, after))
        with open(report) as f:
            p, s = json.load(f)["results"]
        print("whole run, %d variables changed: without a session %.3f ms, with %.3f ms "
              "(medians; means %.3f / %.3f ms)" %
              (VARS, p["median"] * 1e3, s["median"] * 1e3, p["mean"] * 1e3, s["mean"] * 1e3))
        print("session cost per run: %+.3f ms (%.2fx the run without)" %
              ((s["median"] - p["median"]) * 1e3, s["median"] / p["median"]))


if __name__ == "__main__":
    main()
