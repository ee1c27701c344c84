#!/usr/bin/env python3
"""Serves the example site in examples/site under lighttpd on 127.0.0.1.

    python3 examples/serve.py [--fastcgi] build/Tolm [PORT]

With --fastcgi, nginx serves it and Tolm runs as a FastCGI server.

Prints the address and runs until Ctrl-C. The pages are served from
examples/site as they stand, so edits show on the next request; uploads
and logs go to a scratch TMP_DIR that is removed at the end.
"""
import os
import signal
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "tests", "e2e"))

import server  # noqa: E402  (the helpers of the end-to-end tests)
import fcgi_server  # noqa: E402


def main():
    fastcgi = "--fastcgi" in sys.argv
    if fastcgi:
        sys.argv.remove("--fastcgi")
    if len(sys.argv) < 2:
        sys.exit("usage: serve.py [--fastcgi] path/to/Tolm [PORT]")
    tolm = sys.argv[1]
    if not os.access(tolm, os.X_OK):
        sys.exit("%s is not an executable: build it first (make build)" % tolm)
    with open(os.path.join(HERE, "x.config.in")) as f:
        config = f.read()
    with open(os.path.join(HERE, "x.site")) as f:
        settings = f.read()
    kind = fcgi_server.FcgiSite if fastcgi else server.Site
    site = kind(tolm, root=os.path.join(HERE, "site"), config=config, settings=settings)
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
