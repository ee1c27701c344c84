"""Request decoding under load and at its limits, through lighttpd: traced
posts running at once each read their own body; a body beyond X_MAXPOST is
refused; an upload never follows a link planted in the temporary directory."""
import concurrent.futures
import os
import re
import sys

import server
from server import CGI, URLENCODED, expect, expect_eq

PAGES = {"echo.html": "v=[$(v)] f=[$(f)]\n"}


def main(tolm):
    with server.Site(tolm, PAGES) as site:
        def traced_posts_read_their_own_body():
            open(site.path("home", "X_LOG"), "w").close()  # tracing on for every run
            try:
                def one(i):
                    return i, site.upload(CGI, [(b"X_PAGE", b"echo.html"), (
                        b"v", b"body-%d-" % i + b"x" * (i * 37 % 4000))]).text
                with concurrent.futures.ThreadPoolExecutor(max_workers=400) as pool:
                    results = list(pool.map(one, range(400)))
            finally:
                os.unlink(site.path("home", "X_LOG"))
            for i, text in results:
                expect("v=[body-%d-%s]" % (i, "x" * (i * 37 % 4000)) in text, "%d: %r" % (i, text[-200:]))
            expect(os.path.getsize(site.path("tmp", "post.input")) > 0, "no post.input")

        def body_beyond_the_limit_is_refused():
            r = site.post(CGI + "/echo.html", b"X_PAGE=echo.html&v=" + b"y" * 262125, URLENCODED)
            expect("v=[yyyy" in r.text, r.text[:300])
            r = site.post(CGI, b"X_PAGE=echo.html&v=" + b"y" * 262126, URLENCODED)
            expect("Invalid CONTENT_LENGTH." in r.text and "v=[" not in r.text, r.text[:300])

        def upload_never_follows_a_link():
            target = site.path("home", "x.config")
            with open(target) as f:
                config = f.read()
            # Links for the next process ids, one of which the run should get;
            # other work on the machine may take them all, so try again.
            for attempt in range(5):
                with open("/proc/sys/kernel/ns_last_pid") as f:
                    last = int(f.read())
                planted = [site.path("tmp", "c.txt..%d.1" % pid)
                           for pid in range(last + 1, last + 5000)]
                for p in planted:
                    os.symlink(target, p)
                try:
                    r = site.upload(CGI, [(b"X_PAGE", b"echo.html"),
                                          (b"f", b"c.txt", b"overwritten")])
                    path = re.search(r"f=\[([^\]]*)\]", r.text).group(1)
                    with open(target) as f:
                        expect_eq(f.read(), config, "x.config")
                    expect(not os.path.islink(path), path)
                    expect_eq(os.stat(path).st_mode & 0o777, 0o600)
                finally:
                    for p in planted:
                        if os.path.islink(p):
                            os.unlink(p)
                if path in planted:
                    return
            raise AssertionError("the runs never got a process id with a planted link")

        return server.run_checks([traced_posts_read_their_own_body,
                                  body_beyond_the_limit_is_refused, upload_never_follows_a_link])


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
