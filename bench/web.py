#!/usr/bin/env python3
"""Requests a second and p99 latency of a typical page through a web server
on 127.0.0.1: Tolm as a CGI program (lighttpd), a static C CGI program that
prints the same bytes (lighttpd), and Tolm as a FastCGI server (nginx, over
TCP and over a Unix socket).

    python3 bench/web.py build/Tolm [SECONDS] [ROUNDS]

Each (server, concurrency) pair is measured ROUNDS times for SECONDS each
with wrk, interleaved so that the load of other users of the machine falls
on all of them alike; the ranges over the rounds are printed.
"""
import os
import re
import shutil
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "tests", "e2e"))

import fcgi_server  # noqa: E402
import server  # noqa: E402

# A typical page: 20 variables, an if, a 50-row loop.
PAGE_B = ("<@set> title \"Page b\"\n"
          + "".join("<@set> v%02d value%d\n" % (i, i) for i in range(1, 19))
          + "<@set> rows \"" + " ".join("r%d" % i for i in range(1, 51)) + "\"\n"
          "<html><head><title>$(title)</title></head><body>\n"
          "<p>" + " ".join("$(v%02d)" % i for i in range(1, 19)) + "</p>\n"
          "<@if> cmp $(v01) == value1\n<p>first is set</p>\n<@else>\n<p>first is not</p>\n"
          "<@end>\n<table>\n<@while> words rows\n<tr><td>$(rows)</td><td>$(n)</td></tr>\n"
          "<@n>++\n<@end>\n</table></body></html>\n")

C_SOURCE = """#include <unistd.h>
static const char page[] = %s;
int main(void) {
    const char *p = page;
    long left = sizeof page - 1;
    while (left > 0) {
        long n = write(1, p, left);
        if (n <= 0) return 1;
        p += n;
        left -= n;
    }
    return 0;
}
"""

UNITS = {"us": 1e-3, "ms": 1.0, "s": 1e3}


def wrk(url, conc, seconds):
    out = subprocess.run(
        ["wrk", "-t", str(min(conc, 2)), "-c", str(conc), "-d", "%ds" % seconds,
         "--timeout", "10s", "--latency", url],
        capture_output=True, text=True, timeout=seconds + 30, check=True).stdout
    rps = float(re.search(r"Requests/sec:\s+([\d.]+)", out).group(1))
    m = re.search(r"99%\s+([\d.]+)(us|ms|s)\b", out)
    bad = re.search(r"Non-2xx or 3xx responses:\s+(\d+)", out)
    errors = re.search(r"Socket errors:.*", out)
    if bad or errors:
        print("   wrk: %s %s" % (bad.group(0) if bad else "", errors.group(0) if errors else ""))
    return rps, float(m.group(1)) * UNITS[m.group(2)]


def static_cgi(dir, tolm_site):
    """Compiles a static C program printing what Tolm printed for page b."""
    r = tolm_site.get(server.CGI)
    body = b"Content-Type: text/html\r\n\r\n" + r.body
    literal = '"' + "".join("\\x%02x" % b for b in body) + '"'
    src = os.path.join(dir, "page_b.c")
    with open(src, "w") as f:
        f.write(C_SOURCE % literal)
    exe = os.path.join(dir, "page_b")
    cc = shutil.which("gcc") or shutil.which("cc")
    subprocess.run([cc, "-O2", "-static", "-o", exe, src], check=True)
    return exe, r.body


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    tolm = os.path.abspath(sys.argv[1])
    seconds = int(sys.argv[2]) if len(sys.argv) > 2 else 3
    rounds = int(sys.argv[3]) if len(sys.argv) > 3 else 3
    if not shutil.which("wrk"):
        sys.exit("wrk is not installed: run `make bench` (or apt-get install -y wrk)")
    work = tempfile.mkdtemp(prefix="tolm-bench-")
    sites = {}
    try:
        pages = {"x.page": PAGE_B}
        sites["CGI Tolm (lighttpd)"] = server.Site(tolm, pages).start()
        exe, want = static_cgi(work, sites["CGI Tolm (lighttpd)"])
        sites["CGI static C (lighttpd)"] = server.Site(exe, pages).start()
        sites["FastCGI Tolm (nginx, tcp)"] = fcgi_server.FcgiSite(tolm, pages).start()
        sites["FastCGI Tolm (nginx, unix)"] = fcgi_server.FcgiSite(tolm, pages,
                                                                 via="env").start()
        for name, site in sites.items():
            body = site.get(server.CGI).body
            if body.count(b"<tr>") != 50 or not body.endswith(want[-200:]):
                sys.exit("%s: wrong page: %r" % (name, body[:300]))
        results = {}
        for rnd in range(rounds):
            for conc in (1, 16):
                for name, site in sites.items():
                    results.setdefault((name, conc), []).append(
                        wrk(site.url, conc, seconds))
            print("round %d of %d done" % (rnd + 1, rounds), flush=True)
        print("\npage b, %d rounds of %ds each; ranges min-max over the rounds" %
              (rounds, seconds))
        print("%-28s %4s %18s %20s" % ("server", "conc", "requests/s", "p99 ms"))
        for (name, conc), runs in results.items():
            rps = [r for r, _ in runs]
            p99 = [p for _, p in runs]
            print("%-28s %4d %8.0f - %-8.0f %8.2f - %-8.2f" %
                  (name, conc, min(rps), max(rps), min(p99), max(p99)))
        base = results[("CGI Tolm (lighttpd)", 16)]
        print()
        for name in sites:
            if name.startswith("FastCGI"):
                fast = results[(name, 16)]
                print("%s / CGI Tolm, requests/s at concurrency 16: %.1fx - %.1fx" % (
                    name, min(r for r, _ in fast) / max(r for r, _ in base),
                    max(r for r, _ in fast) / min(r for r, _ in base)))
    finally:
        for site in sites.values():
            site.stop()
        shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    main()
