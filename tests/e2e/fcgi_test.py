"""Tolm as a FastCGI server behind nginx: the CGI request and demo cases
unchanged, then what only a persistent server can get wrong: state leaking
between requests, pages that exit, crash or hang, a killed worker, load,
and a clean stop."""
import concurrent.futures
import os
import re
import signal
import subprocess
import sys
import threading
import time

import demo_test
import fcgi_server
import requests_test
import server
from server import CGI, expect, expect_eq

PAGES = {
    "leak.html": "var=[$(v)] env=[$(env:HTTP_X_SECRET)] pid=[$(X_PID)]\n<@set> v leaked\n",
    "quit.html": "before quit\n<@quit>\nnever\n",
    "crash.html": "before crash\n<@shell> kill -ABRT $(X_PID)\nnever\n",
    "error.html": "<@shell> echo to-the-log >&2\n<@exec> nosuchfunction\n",
    "slow.html": "slow start\n<@sleep> $(s)\nslow end\n",
    "echo.html": "n=[$(n)] len=[$(len:blob)]\n",
}


def with_site_class(cls, run, tolm):
    """Runs another test module's main with every server.Site made by CLS."""
    saved = server.Site
    server.Site = cls
    try:
        return run(tolm)
    finally:
        server.Site = saved


def children(pid):
    with open("/proc/%d/task/%d/children" % (pid, pid)) as f:
        return [int(p) for p in f.read().split()]


def pool_checks(tolm):
    site = fcgi_server.FcgiSite(tolm, PAGES, workers=3, timeout=2)
    with site:
        def get(page, **headers):
            return site.get(CGI + "/" + page, headers=headers)

        def state_stays_with_its_request():
            first = get("leak.html", **{"X-Secret": "s3"})
            expect(first.text.endswith("var=[] env=[s3] pid=[%s]\n" % re.search(
                r"pid=\[(\d+)\]", first.text).group(1)), first.text)
            pids = set()
            for _ in range(6):
                r = get("leak.html")
                expect("var=[] env=[] pid=[" in r.text, r.text)
                pids.add(re.search(r"pid=\[(\d+)\]", r.text).group(1))
            expect_eq(len(pids), 6, "one fresh process per request")

        def exit_crash_and_error_end_the_response():
            for page, status, text in [("quit.html", 200, "before quit\n"),
                                       ("crash.html", 200, "before crash\n"),
                                       ("error.html", 200, "EXEC: Unknown function name")]:
                r = get(page)
                expect(r.status == status and text in r.text and "never" not in r.text,
                       "%s: %d %r" % (page, r.status, r.text))
            log = open(site.path("tmp", "nginx.error.log")).read()
            expect("page ended by signal 6" in log, "crash not logged")
            expect("FastCGI sent in stderr: \"to-the-log" in log, "page's stderr not logged")
            expect_eq(get("leak.html").status, 200)

        def hung_page_is_killed_after_the_limit():
            t = time.time()
            r = site.get(CGI + "/slow.html?s=30")
            expect(time.time() - t < 10, "took %.1fs" % (time.time() - t))
            expect("slow start" in r.text and "slow end" not in r.text, r.text)
            expect("killed after the time limit" in
                   open(site.path("tmp", "nginx.error.log")).read(), "timeout not logged")

        def killed_worker_is_replaced():
            for pid in children(site.tolm_proc.pid):
                os.kill(pid, signal.SIGKILL)
            time.sleep(0.2)
            expect_eq(len(children(site.tolm_proc.pid)), 3, "pool refilled")
            expect_eq(get("leak.html").status, 200)

        def two_hundred_at_once():
            def one(i):
                body = "n=%d&blob=%s" % (i, "x" * (i * 997 % 70000))
                r = site.post(CGI, ("X_PAGE=echo.html&" + body).encode(),
                              "application/x-www-form-urlencoded")
                return r.status, r.text.rsplit("\n", 2)[-2]
            with concurrent.futures.ThreadPoolExecutor(200) as ex:
                got = list(ex.map(one, range(200)))
            bad = [(i, g) for i, g in enumerate(got)
                   if g != (200, "n=[%d] len=[%d]" % (i, i * 997 % 70000))]
            expect(not bad, "%d wrong, first %r" % (len(bad), bad[:1]))

        def stop_finishes_requests_in_flight():
            out = {}
            t = threading.Thread(target=lambda: out.setdefault(
                "r", site.get(CGI + "/slow.html?s=1")))
            t.start()
            time.sleep(0.4)
            proc = site.tolm_proc
            expect_eq(site.stop_tolm(), 0, "exit status after SIGTERM")
            t.join()
            expect(out["r"].text.endswith("slow start\nslow end\n"), out["r"].text)
            expect(proc.poll() == 0, "server still running")

        def bad_addresses_stop_the_server():
            """A listening address that cannot be used ends the start with a message."""
            for addr, message in [("127.0.0.1", "no port in 127.0.0.1"),
                                  ("127.0.0.1:http", "bad port in"),
                                  ("localhost:9000", "bad address localhost:9000"),
                                  ("/no/such/dir/tolm.sock",
                                   "cannot bind /no/such/dir/tolm.sock: No such"),
                                  ("/" + "x" * 200, "socket path too long")]:
                r = subprocess.run([tolm], env={"TOLM_FASTCGI_LISTEN": addr}, capture_output=True,
                                   text=True, timeout=10, stdin=subprocess.DEVNULL)
                expect(r.returncode == 1 and "Tolm: FastCGI: " + message in r.stderr,
                       "%s: %d %r" % (addr, r.returncode, r.stderr))

        return server.run_checks([
            bad_addresses_stop_the_server, state_stays_with_its_request, exit_crash_and_error_end_the_response,
            hung_page_is_killed_after_the_limit, killed_worker_is_replaced,
            two_hundred_at_once, stop_finishes_requests_in_flight,
        ])


def header_values_as_nginx_passes_them(got, want, what=""):
    """nginx drops the blank that ends each cookie line (Tolm's bytes reach it
    unchanged, as the relay's unit tests show); everything else must match."""
    if what == "Set-Cookie lines":
        got, want = [v.rstrip() for v in got], [v.rstrip() for v in want]
    expect_eq(got, want, what)


def main(tolm):
    print("# the CGI request cases, Tolm on a socket handed over as standard input")
    requests_test.expect_eq = header_values_as_nginx_passes_them
    failed = with_site_class(fcgi_server.FcgiSite, requests_test.main, tolm)
    print("# the demo site, Tolm listening on a Unix socket of its own")
    failed |= with_site_class(lambda *a, **k: fcgi_server.FcgiSite(*a, via="env", **k),
                              demo_test.main, tolm)
    print("# the pool")
    return failed | pool_checks(tolm)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
