"""The same requests under the compat and the safe profile (x.site), through
lighttpd: request X_ names, a faked upload page, UTF-8 output, posts with a
charset and PATH_INFO, upload clean-up and the visitor's error output."""
import os
import re
import sys

import server
from server import CGI, URLENCODED, expect, expect_eq

PAGES = {
    "x.page": "default a=[$(a)] cookies=[$(X_ServerCOOKIES)] page=[$(X_PAGE)]\n",
    "form.html": "form a=[$(a)] b=[$(b)]\n",
    "utf.html": "caf\u00e9 $(a)\n",
    "up.html": "<@if> $(keep) == yes\n<@shell> mv $(f) $(f).kept\n<@end>\nup f=[$(f)]\n",
    "cookie.html": "<@cookie> X_ERROR\n<@cookie> c\nc=[$(c)] e=[$(X_ERROR)]\n",
}


def main(tolm):
    with server.Site(tolm, PAGES) as site:
        uploads = os.path.join(site.site_root, "up")
        os.makedirs(uploads)
        # Uploads land under the site's root, as careless sites have it.
        site.write(site.path("home", "x.env"), "TMP_DIR=%s\n" % uploads)

        def both(check):
            """Runs check(safe) without and with the safe profile."""
            def run():
                for safe in (False, True):
                    site.write(site.path("home", "x.site"), "profile %s\n"
                               % ("safe" if safe else "compat"))
                    check(safe)
            run.__name__ = check.__name__
            return run

        def log():
            with open(site.path("tmp", "cgi.log"), errors="replace") as f:
                return f.read()

        def request_x_names(safe):
            r = site.get(CGI + "?X_ServerCOOKIES=a&a=1&X_PAGE=x.page&X_Other=1")
            expect_eq(r.header("Set-Cookie"),
                      [] if safe else ["a=1; path=/; expires=31-Dec-2037 23:55:00 GMT "])
            expect(r.text.endswith("default a=[1] cookies=[%s] page=[%s/x.page]\n"
                                   % ("" if safe else "a", site.site_root)), r.text)
            expect(("the request may not set X_ServerCOOKIES" in log()) == safe, log())

        def upload_as_page(safe):
            r = site.upload(CGI, [(b"X_PAGE", b"evil.html", b"EVIL $(X_HOME)\n")])
            expect(("EVIL" in r.text) != safe, r.text)
            expect(("default" in r.text) == safe, r.text)

        def utf8_output(safe):
            r = site.get(CGI + "/utf.html?a=%C3%A9")
            expect_eq(r.header("Content-Type"),
                      ["text/html; charset=utf-8" if safe else "text/html"])
            want = "caf\u00e9 \u00e9\n".encode() if safe else b"caf&ordmas;\xa9 &ordmas;\xa9\n"
            expect(r.body.endswith(want), r.body)

        def post_with_charset_and_path(safe):
            r = site.post(CGI + "/form.html", b"a=1&b=x+y", URLENCODED + "; charset=UTF-8")
            expect(r.text.endswith("form a=[1] b=[x y]\n" if safe else "default a=[] cookies=[] "
                                   "page=[%s/x.page]\n" % site.site_root), r.text)
            r = site.post(CGI + "/form.html", b"a=2", URLENCODED)
            expect(r.text.endswith("form a=[2] b=[]\n" if safe else "default a=[2] cookies=[] "
                                   "page=[%s/x.page]\n" % site.site_root), r.text)

        def uploads_removed_unless_moved(safe):
            for keep in (b"no", b"yes"):
                r = site.upload(CGI + "/up.html", [(b"X_PAGE", b"up.html"), (b"keep", keep),
                                                   (b"f", b"data.txt", b"12345")])
                m = re.search(r"up f=\[([^\]]*)\]", r.text)
                expect(m, r.text)
                path = m.group(1)
                if keep == b"yes":
                    expect(os.path.exists(path + ".kept"), path)
                    os.unlink(path + ".kept")
                else:
                    expect(os.path.exists(path) != safe, path)
                    if not safe:
                        os.unlink(path)

        def error_output(safe):
            r = site.get(CGI + "?X_PAGE=<script>x</script>")
            root = site.site_root
            # The long-standing fragment shows the message as it stands.
            msg = "Invalid (not existing/regular file: %s) X_PAGE value: %s" % (
                ("/&lt;script&gt;x&lt;/script&gt;", "&lt;script&gt;x&lt;/script&gt;") if safe else
                (root + "/<script>x</script>", "<script>x</script>"))
            expect(msg in r.text, r.text)
            expect(("<script>" not in r.text) == safe, r.text)
            expect_eq(r.status, 500 if safe else 200)
            expect((root in r.text) != safe, r.text)

        def cookie_x_names(safe):
            r = site.get(CGI + "/cookie.html", headers={"Cookie": "X_ERROR=/etc/passwd; c=1"})
            expect(r.text.endswith("c=[1] e=[%s]\n" % ("" if safe else "/etc/passwd")), r.text)

        return server.run_checks([both(c) for c in (
            request_x_names, upload_as_page, utf8_output, post_with_charset_and_path,
            uploads_removed_unless_moved, error_output, cookie_x_names)])


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
