"""Per-site limits of x.site through lighttpd: each refuses just above its
value and allows a request at its value."""
import os
import subprocess
import sys
import time

import server
from server import BOUNDARY, CGI, MULTIPART, URLENCODED, expect, expect_eq, multipart

PAGES = {
    "x.page": "pairs [$(a)$(b)$(c)$(d)] file [$(len:f)]\n",
    "x.error": "error page: $(X_ERRMSG)\n",
    "write.html": "<@fopen> out out.txt w\n<@vfputs> out data\n<@fclose> out\nwritten\n",
    "spin.html": "<@set> i 0\n<@while>\n<@i>++\n<@if> $(i) < 0 <@break>\n<@end>\n",
    "nap.html": "<@usleep> $(us)\nawake\n",
    "grow.html": "<@set> s 0123456789abcdef\n<@while>\n<@set> s $(s)$(s)\n"
                 "<@if> $(len:s) > 30000 <@break>\n<@end>\n<@set> n 0\n<@while>\n<@n>++\n"
                 "<@set> v$(n) $(s)\n<@if> !v$(n) <@break>\n<@if> $(n) >= $(most) <@break>\n"
                 "<@end>\ngrew to $(n)\n",
}
REFUSED = "Request Entity Too Large"


def asan(tolm):
    out = subprocess.run(["ldd", tolm], capture_output=True, text=True).stdout
    return "libasan" in out


def main(tolm):
    with server.Site(tolm, PAGES) as site:
        def settings(text):
            site.write(site.path("home", "x.site"), text)

        def refused(r, message):
            expect_eq(r.status, 413, r.text)
            expect("error page: " + message in r.text, r.text)
            expect("pairs [" not in r.text, r.text)

        def body_size():
            settings("max_body 24\n")
            body = b"a=1&b=2&c=3&d=" + b"x" * 10       # 24 bytes
            r = site.post(CGI, body, URLENCODED)
            expect_eq(r.status, 200)
            expect("pairs [123" + "x" * 10 + "]" in r.text, r.text)
            refused(site.post(CGI, body + b"x", URLENCODED),
                    "Request too large: a body of 25 bytes, this site accepts 24 (413)")
            up = multipart(BOUNDARY, [(b"a", b"1")])
            settings("max_body %d\n" % len(up))
            expect("pairs [1]" in site.post(CGI, up, MULTIPART).text, "multipart at the limit")
            settings("max_body %d\n" % (len(up) - 1))
            refused(site.post(CGI, up, MULTIPART), "Request too large")

        def pairs():
            settings("max_pairs 3\n")
            expect("pairs [123]" in site.get(CGI + "?a=1&b=2&c=3").text, "three pairs")
            refused(site.get(CGI + "?a=1&b=2&c=3&d=4"),
                    "Too many form values: 4, this site accepts 3 (413)")
            refused(site.post(CGI, b"a=1&b=2&c=3&d=4", URLENCODED), "Too many form values: 4")

        def uploads():
            settings("max_uploads 2\nmax_upload 1k\n")
            files = [(b"f", b"one.txt", b"x" * 1024), (b"g", b"two.txt", b"y")]
            r = site.upload(CGI, [(b"a", b"1")] + files)
            expect("pairs [1] file [" in r.text and r.status == 200, r.text)
            refused(site.upload(CGI, files + [(b"h", b"3.txt", b"z")]),
                    "Too many upload files: 3, this site accepts 2 (413)")
            refused(site.upload(CGI, [(b"f", b"big.txt", b"x" * 1025)]), "Upload too large: a file of 1025 bytes, this site accepts 1024 (413)")

        def file_size():
            settings("file_size 1000\n")
            out = site.path("site", "out.txt")
            for n, kept in ((1000, 1000), (1001, 1000)):
                r = site.post(CGI, b"X_PAGE=write.html&data=" + b"w" * n, URLENCODED)
                expect("written" in r.text, r.text)
                expect_eq(os.path.getsize(out), kept, "bytes written of %d" % n)

        def time_limits():
            # setting, a page over it, its message, the longest wait, a run within it
            for setting, over, message, most, within, shown in (
                    ("cpu_seconds 1\n", "/spin.html", "Processor time limit of 1 seconds reached",
                     10, "?a=1", "pairs [1]"),
                    ("time_limit 1\n", "/nap.html?us=3000000", "Time limit of 1 seconds reached",
                     2.5, "/nap.html?us=300000", "awake")):
                settings(setting)
                start = time.time()
                r = site.get(CGI + over)
                expect("error page: " + message in r.text, r.text)
                expect(time.time() - start < most, "took %.1f s" % (time.time() - start))
                expect(shown in site.get(CGI + within).text, "a run within " + setting)

        def memory():
            # 1 GiB: the interpreter's stack alone takes 256 MiB of it.
            settings("memory 1g\n")
            expect("grew to 100\n" in site.get(CGI + "/grow.html?most=100").text, "3 MB")
            r = site.get(CGI + "/grow.html?most=40000")
            expect("error page: X_heap: NO MEMORY..." in r.text and "grew" not in r.text, r.text)

        checks = [body_size, pairs, uploads, file_size, time_limits]
        # Address-space limits and the sanitizers' shadow memory do not mix.
        if not asan(tolm):
            checks.append(memory)
        return server.run_checks(checks)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
