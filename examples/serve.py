#!/usr/bin/env python3
"""Serves the example site in examples/site under lighttpd on 127.0.0.1.

    python3 examples/serve.py [--fastcgi] build/Tolm [PORT]

With --fastcgi, nginx serves it and Tolm runs as a FastCGI server.

Prints the address and runs until Ctrl-C. The pages are served from
examples/site as they stand, so edits show on the next request. X_HOME gets
x.config, x.site (the safe profile, limits) and x.env (DATA_DIR, where the database
and the kept uploads live); uploads, data and logs are in a scratch directory
that is removed at the end.
"""
import os
import signal
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "tests", "e2e"))

import server  # noqa: E402  (the helpers of the end-to-end tests)
import fcgi_server  # noqa: E402


def read(name):
    with open(os.path.join(HERE, name)) as f:
        return f.read()


def demo_site(tolm, fastcgi=False):
    """The example site, set up as `make demo` serves it (not yet started)."""
    kind = fcgi_server.FcgiSite if fastcgi else server.Site
    return kind(tolm, root=os.path.join(HERE, "site"), config=read("x.config.in"),
                settings=read("x.site"),
                files={"home/x.env": read("x.env.in"),
                       "data/README": "The demo's database and kept uploads.\n"})


def main():
    fastcgi = "--fastcgi" in sys.argv
    if fastcgi:
        sys.argv.remove("--fastcgi")
    if len(sys.argv) < 2:
        sys.exit("usage: serve.py [--fastcgi] path/to/Tolm [PORT]")
    tolm = sys.argv[1]
    if not os.access(tolm, os.X_OK):
        sys.exit("%s is not an executable: build it first (make build)" % tolm)
    site = demo_site(tolm, fastcgi)
    if len(sys.argv) > 2:
        site.port_wanted = int(sys.argv[2])
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))
    with site:
        print("Tolm demo site: %s" % site.url, flush=True)
        print("(pages from %s; Ctrl-C stops)" % site.site_root, flush=True)
        try:
            while site.proc.poll() is None:
                time.sleep(0.5)
            print("the web server stopped", file=sys.stderr)
            return 1
        except KeyboardInterrupt:
            print("\nstopped")
    return 0


if __name__ == "__main__":
    sys.exit(main())
