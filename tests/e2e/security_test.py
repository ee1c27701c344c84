"""Hostile requests and request decoding at its limits, through lighttpd:
page names that try to leave the site root, request values that try to
start header lines of their own, upload file names that try to choose where
the upload is written, many uploads at once that must each get a file of
their own, traced posts running at once that each read their own body, a
body beyond X_MAXPOST, and links planted in the temporary directory."""
import concurrent.futures
import http.client
import os
import re
import sys

import server
from server import CGI, URLENCODED, expect, expect_eq

SECRET = "SECRET-OUTSIDE-THE-ROOT"
PAGES = {
    "x.page": "home page\n",
    "sub/p.html": "sub page\n",
    "cookies.html": "cookies\n",
    "upload.html": "file=[$(file)] text=[$(text)]\n",
    "echo.html": "v=[$(v)] f=[$(f)]\n",
}


def raw_get(site, target):
    """A GET whose target goes out exactly as written (no client quoting)."""
    conn = http.client.HTTPConnection("127.0.0.1", site.port, timeout=30)
    try:
        conn.putrequest("GET", target, skip_accept_encoding=True)
        conn.endheaders()
        r = conn.getresponse()
        return server.Response(r.status, r.getheaders(), r.read())
    finally:
        conn.close()


def files_under(top, skip):
    """Every file below top, except under skip, with its size and time."""
    out = {}
    for d, dirs, files in os.walk(top):
        if d.startswith(skip):
            continue
        for f in files:
            p = os.path.join(d, f)
            st = os.lstat(p)
            out[p] = (st.st_size, st.st_mtime_ns)
    return out


def main(tolm):
    with server.Site(tolm, PAGES) as site:
        root = site.site_root
        # Files outside the root that a page name might reach: one beside
        # the site, one in a sibling directory whose name starts like it.
        for path in (site.path("outside.html"), root + "2/p.html"):
            site.write(path, SECRET + "\n")
        before = files_under(site.dir, site.path("tmp"))

        def page_names_stay_inside_the_root():
            names = ["../outside.html", "%2e%2e/outside.html", "%2E%2E%2Foutside.html",
                     "sub/../../outside.html", "sub/%2e%2e/%2e%2e/outside.html",
                     "..//outside.html", "sub//..//..//outside.html", ".%2e/outside.html",
                     "./../outside.html", root + "/../outside.html", root + "2/p.html",
                     site.path("outside.html"), "/" + site.path("outside.html"),
                     "//" + site.path("outside.html"), "/etc/passwd", "..%2f..%2fetc/passwd",
                     "x.page%00/../../outside.html", "%00../outside.html",
                     "sub/p.html%00../../outside.html"]
            for name in names:
                for target in (CGI + "/" + name.lstrip("/"), CGI + "?X_PAGE=" + name,
                               CGI + "/x.page?X_PAGE=" + name):
                    r = raw_get(site, target)
                    expect(SECRET not in r.text and "root:x:0:0" not in r.text,
                           "%s reached a file outside the root: %r" % (target, r.text))
                r = site.post(CGI, b"X_PAGE=" + name.encode(), URLENCODED)
                expect(SECRET not in r.text, "posted %s: %r" % (name, r.text))
                r = site.upload(CGI, [(b"X_PAGE", name.encode())])
                expect(SECRET not in r.text, "uploaded %s: %r" % (name, r.text))
            # Raw NUL bytes in a multipart value end the name where they stand.
            r = site.upload(CGI, [(b"X_PAGE", b"x.page\0/../../outside.html")])
            expect(SECRET not in r.text and "home page" in r.text, r.text)
            # The same names that stay inside still work.
            for target in (CGI + "/sub/p.html", CGI + "?X_PAGE=sub//p.html",
                           CGI + "?X_PAGE=sub/./p.html", CGI + "?X_PAGE=" + root + "/sub/p.html"):
                expect("sub page" in raw_get(site, target).text, target)

        def values_never_start_header_lines():
            evil = "%0D%0AX-Evil:+1%0D%0AContent-Type:+text/plain"
            # lighttpd itself refuses line breaks in the URL: bodies carry them.
            for r in (site.post(CGI, ("X_PAGE=cookies.html&X_ServerCOOKIES=a&a=" + evil +
                                      "&X_SessionCOOKIES=b&b=" + evil).encode(), URLENCODED),
                      site.post(CGI + "/cookies.html", ("X_PAGE=cookies.html&X_ServerCOOKIES=a+"
                                "c%0D%0AX-Evil:+1&a=" + evil).encode(), URLENCODED),
                      site.upload(CGI, [
                          (b"X_PAGE", b"cookies.html"),
                          (b"X_SessionCOOKIES", b"a\r\nX-Evil: 1\r\n b"),
                          (b"a", b"v\r\nX-Evil: 1"), (b"b", b"w\nContent-Type: text/plain")]),
                      site.get(CGI + "/cookies.html?X_SessionCOOKIES=sid",
                               headers={"Cookie": "sid=" + evil.replace("+", "%20")})):
                expect_eq(r.header("X-Evil"), [], "injected header")
                expect_eq(r.header("Content-Type"), ["text/html"], "content type")
                expect("cookies" in r.text, r.text)
                for c in r.header("Set-Cookie"):
                    expect(re.fullmatch(r"[!-~]+=[A-Za-z0-9%]*; .*", c), c)

        def upload_names_never_choose_the_place():
            tmp = site.path("tmp")
            names = [b"../../home/x.config", b"/etc/cron.d/tolm", b"..\\..\\home\\x.config",
                     b"C:\\..\\..\\evil.txt", b"sub/../../../evil", b"..", b".", b"%2e%2e%2fevil",
                     b"evil\0/../../x", b"a" * 400, b"\r\nX-Evil: 1", b"dir/", b"dir\\"]
            for name in names:
                r = site.upload(CGI, [(b"X_PAGE", b"upload.html"), (b"file", name, b"payload")])
                m = re.search(r"file=\[([^\]]*)\]", r.text)
                expect(m, r.text)
                path = m.group(1)
                if path:
                    expect_eq(os.path.dirname(path), tmp, "upload of %r" % name)
                    expect(os.path.isfile(path), path)
            expect_eq(files_under(site.dir, tmp), before, "files outside TMP_DIR")

        def parallel_uploads_get_files_of_their_own():
            def one(i):
                data = ("upload %d " % i).encode() * 50
                r = site.upload(CGI, [(b"X_PAGE", b"upload.html"), (b"text", b"t%d" % i),
                                      (b"file", b"same.txt", data)])
                m = re.search(r"file=\[([^\]]*)\] text=\[t(\d+)\]", r.text)
                expect(m and int(m.group(2)) == i, r.text)
                return m.group(1), data
            with concurrent.futures.ThreadPoolExecutor(200) as pool:
                results = list(pool.map(one, range(200)))
            paths = [p for p, _ in results]
            expect_eq(len(set(paths)), 200, "distinct upload files")
            for path, data in results:
                with open(path, "rb") as f:
                    expect(f.read() == data, "%s holds another upload" % path)

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

        # The last three change files outside TMP_DIR for a while: they come
        # after the check that nothing there changes.
        return server.run_checks([
            page_names_stay_inside_the_root, values_never_start_header_lines,
            upload_names_never_choose_the_place, parallel_uploads_get_files_of_their_own,
            traced_posts_read_their_own_body, body_beyond_the_limit_is_refused,
            upload_never_follows_a_link,
        ])


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
