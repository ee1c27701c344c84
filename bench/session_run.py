#!/usr/bin/env python3
"""The cost of a session per whole run: the same page from the shell with
and without a session, side by side in one hyperfine -N run.

Usage: session_run.py TOLM [RUNS]

The page changes 10 variables on every run. With "<@session> start" first
they are session variables: loaded from the SQLite store (the session's id
comes in HTTP_COOKIE, as a browser would send it) and saved changed at the
end. The report gives both medians, the difference (the aim is under
0.2 ms) and the ratio, with the load average around the measurement.

In the same hyperfine run, two static C programs give the floor of any
store in SQLite that a fresh process opens: one prints only, the other
opens the same store file as Tolm does, reads the session with the same
query and writes its 10 values in one transaction.
"""
import json
import os
import shutil
import sqlite3
import subprocess
import sys
import tempfile

VARS = 10
PAGE = "".join("<@S_v%d>++\n" % i for i in range(VARS)) + \
    " ".join("$(S_v%d)" % i for i in range(VARS)) + "\n"


# Opens the store as Tolm opens it, loads a session and writes 10 values,
# with the store's statements and its rule for emptying the log.
FLOOR = r"""
#include <sqlite3.h>
#include <stdio.h>
static sqlite3 *db;
static int wal_pages;
static int count_wal(void *u, sqlite3 *d, const char *n, int pages) { wal_pages = pages; return 0; }
static sqlite3_stmt *prepare(const char *sql) {
    sqlite3_stmt *st;
    return sqlite3_prepare_v2(db, sql, -1, &st, 0) == SQLITE_OK ? st : 0;
}
static int step(sqlite3_stmt *st) {
    int rc, rows = 0;
    while ((rc = sqlite3_step(st)) == SQLITE_ROW) rows++;
    sqlite3_reset(st);
    return rc == SQLITE_DONE ? rows : -1;
}
int main(int argc, char **argv) {
    if (argc < 3) { fputs("x\n", stdout); return 0; }
    sqlite3_config(SQLITE_CONFIG_SINGLETHREAD);
    sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
    sqlite3_config(SQLITE_CONFIG_LOOKASIDE, 0, 0);
    sqlite3_config(SQLITE_CONFIG_PAGECACHE, (void *)0, 0, 0);
    if (sqlite3_open_v2(argv[1], &db, SQLITE_OPEN_READWRITE, 0) != SQLITE_OK) return 1;
    sqlite3_busy_timeout(db, 2000);
    sqlite3_db_config(db, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, (int *)0);
    sqlite3_wal_hook(db, count_wal, 0);
    sqlite3_exec(db, "PRAGMA synchronous=NORMAL", 0, 0, 0);
    sqlite3_stmt *load = prepare("SELECT s.created, s.seen, s.token, v.name, v.value FROM "
                                 "tolm_sessions s LEFT JOIN tolm_session_vars v ON v.sid = s.sid "
                                 "WHERE s.sid = ?1");
    sqlite3_stmt *begin = prepare("BEGIN IMMEDIATE"), *commit = prepare("COMMIT");
    sqlite3_stmt *put = prepare("REPLACE INTO tolm_session_vars (sid, name, value) "
                                "VALUES (?1, ?2, ?3)");
    int ok = load && begin && commit && put;
    if (ok) sqlite3_bind_text(load, 1, argv[2], -1, SQLITE_STATIC);
    ok = ok && step(load) > 0 && step(begin) >= 0;
    for (int i = 0; ok && i < 10; i++) {
        char name[16];
        snprintf(name, sizeof name, "S_v%d", i);
        sqlite3_bind_text(put, 1, argv[2], -1, SQLITE_STATIC);
        sqlite3_bind_text(put, 2, name, -1, SQLITE_STATIC);
        sqlite3_bind_int(put, 3, i);
        ok = step(put) >= 0;
    }
    ok = ok && step(commit) >= 0;
    sqlite3_stmt *all[] = {load, begin, commit, put};
    for (int i = 0; i < 4; i++) sqlite3_finalize(all[i]);
    if (wal_pages >= 32) {  /* the store's own rule for emptying its log */
        sqlite3_busy_timeout(db, 0);
        sqlite3_wal_checkpoint_v2(db, 0, SQLITE_CHECKPOINT_TRUNCATE, 0, 0);
    }
    sqlite3_close(db);
    fputs("x\n", stdout);
    return ok ? 0 : 1;
}
"""


def build_floor(tmp):
    """The floor program, built static like Tolm and copied as an install
    (a file fresh from the linker starts slower than the same bytes copied)."""
    src, exe = os.path.join(tmp, "floor.c"), os.path.join(tmp, "floor")
    with open(src, "w") as f:
        f.write(FLOOR)
    cc = shutil.which("cc") or shutil.which("gcc")
    subprocess.run([cc, "-O2", "-static", "-o", exe + ".built", src, "-lsqlite3", "-lm"],
                   check=True, capture_output=True)
    shutil.copy2(exe + ".built", exe)
    return exe


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
        # Two first runs make two sessions, one for Tolm (later runs send
        # its id back) and one for the floor program.
        store = os.path.join(tmp, "sessions-shell_00.db")
        sids = []
        for _ in range(2):
            subprocess.run([tolm, session], env=env, check=True, capture_output=True)
            with sqlite3.connect(store) as db:
                sids += [r[0] for r in db.execute("SELECT sid FROM tolm_sessions")
                         if r[0] not in sids]
        sid, other = sids
        env["HTTP_COOKIE"] = "tolm_sid=" + sid
        floor = build_floor(tmp)
        subprocess.run([floor, store, other], check=True, capture_output=True)
        before = subprocess.run([tolm, session], env=env, check=True,
                                capture_output=True).stdout.split()[-1]
        report = os.path.join(tmp, "hf.json")
        print("load average before: " + loadavg())
        subprocess.run(["hyperfine", "-N", "--style", "none", "--warmup", "20", "--runs",
                        str(runs), "--export-json", report, tolm + " " + plain,
                        tolm + " " + session, floor, floor + " " + store + " " + other],
                       env=env, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        print("load average after: " + loadavg())
        after = subprocess.run([tolm, session], env=env, check=True,
                               capture_output=True).stdout.split()[-1]
        if int(after) <= int(before) + runs:
            sys.exit("the session page did not keep its values: %s, then %s" % (before, after))
        with open(report) as f:
            p, s, c, cs = json.load(f)["results"]
        print("whole run, %d variables changed: without a session %.3f ms, with %.3f ms "
              "(medians; means %.3f / %.3f ms)" %
              (VARS, p["median"] * 1e3, s["median"] * 1e3, p["mean"] * 1e3, s["mean"] * 1e3))
        print("session cost per run: %+.3f ms (%.2fx the run without)" %
              ((s["median"] - p["median"]) * 1e3, s["median"] / p["median"]))
        print("floor of SQLite in a fresh process (C: open, load, write 10 values): %+.3f ms "
              "(%.3f against %.3f ms)" %
              ((cs["median"] - c["median"]) * 1e3, cs["median"] * 1e3, c["median"] * 1e3))


if __name__ == "__main__":
    main()
