"""Hostile requests through lighttpd: oversized values and paths, too many
fields, broken bodies and header injection. Each must give a well-formed
answer, never crash the interpreter, and leave the site's files alone."""
import os
import sys

import server
from server import CGI, expect, expect_eq, multipart

PAGES = {
    "x.page": "v=[$(len:v)] after=[$(after)] pct=[$(pct)] last=[$(p9998)] over=[$(p9999)]\n",
    "sid.html": "<@cookie> a\ncookies page a=[$(len:a)]\n",
}

URLENCODED = "application/x-www-form-urlencoded"


def main(tolm):
    with server.Site(tolm, PAGES) as site:

        def huge_value_is_cut():
            body = b"v=" + b"x" * 400000 + b"&after=ok"
            r = site.post(CGI, body, URLENCODED)
            expect_eq(r.status, 200)
            expect("v=[262142] after=[ok]" in r.text, r.text)

        def trailing_percent_is_kept():
            r = site.get(CGI + "?pct=100%25%&v=%4")
            expect("v=[2] after=[] pct=[100%%]" in r.text, r.text)

        def too_many_fields_keep_the_first_9999():
            body = "&".join("p%d=%d" % (i, i) for i in range(12000)).encode()
            r = site.post(CGI, body, URLENCODED)
            expect("last=[9998] over=[]" in r.text, r.text)

        def too_many_parts_keep_the_first_9999():
            parts = [(b"p%d" % i, b"%d" % i) for i in range(10005)]
            r = site.post(CGI, multipart(b"zz", parts), "multipart/form-data; boundary=zz")
            expect("last=[9998] over=[]" in r.text, r.text)

        def long_page_name_is_refused():
            r = site.get(CGI + "?X_PAGE=" + "a/" * 300 + "x.page")
            expect("Invalid (too long) X_PAGE value: a/a/" in r.text, r.text)
            expect("v=[" not in r.text, r.text)

        def cut_multipart_body_is_broken_input():
            body = (b"--zz\r\nContent-Disposition: form-data; name=\"v\"\r\n\r\n"
                    b"no closing boundary")
            r = site.post(CGI, body, "multipart/form-data; boundary=zz")
            expect("Broken Input..." in r.text, r.text)
            expect("v=[" not in r.text, r.text)

        def multipart_without_boundary_line():
            r = site.post(CGI, b"\xff\xfe" * 5000 + b"\r\n" + b"name=\"" * 3000,
                          "multipart/form-data")
            expect_eq(r.status, 200)

        def huge_header_lines_in_a_part():
            body = (b"--zz\r\nX-Pad: " + b"p" * 100000 + b"\r\n"
                    b"Content-Disposition: form-data; name=\"after\"\r\n"
                    b"X-Pad: " + b"q" * 100000 + b"\r\n\r\nfine\r\n--zz--\r\n")
            r = site.post(CGI, body, "multipart/form-data; boundary=zz")
            expect("after=[fine]" in r.text, r.text)

        def cookie_names_cannot_inject_headers():
            # lighttpd refuses line breaks in the URL; the body carries them.
            r = site.post(CGI, b"X_PAGE=sid.html&X_ServerCOOKIES=x%0D%0ALocation:http://evil/"
                          b"+ok&ok=1", URLENCODED)
            expect_eq(r.status, 200)
            expect_eq(r.header("Location"), [])
            expect_eq([c.strip() for c in r.header("Set-Cookie")],
                      ["ok=1; path=/; expires=31-Dec-2037 23:55:00 GMT"])

        def long_cookie_header():
            r = site.get(CGI + "/sid.html", headers={"Cookie": "a=" + "%41" * 2000})
            expect("cookies page a=[2000]" in r.text, r.text)

        def site_files_untouched():
            with open(site.path("home", "x.config")) as f:
                expect(f.read().startswith("127.0.0.1:%d " % site.port), "x.config changed")
            expect_eq(sorted(os.listdir(site.path("site"))), ["sid.html", "x.page"])

        return server.run_checks([
            huge_value_is_cut, trailing_percent_is_kept, too_many_fields_keep_the_first_9999,
            too_many_parts_keep_the_first_9999, long_page_name_is_refused,
            cut_multipart_body_is_broken_input, multipart_without_boundary_line,
            huge_header_lines_in_a_part, cookie_names_cannot_inject_headers,
            long_cookie_header, site_files_untouched,
        ])


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
