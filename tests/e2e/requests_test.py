"""Requests through lighttpd: queries, PATH_INFO, posts, uploads and cookies,
and hostile input that must give a well-formed answer and leave the site's
files alone."""
import os
import re
import sys

import server
from server import BOUNDARY, CGI, URLENCODED, expect, expect_eq

PAGES = {
    "x.page": "a=[$(a)] b=[$(b)] two=[$(mval:a:2)] prog=[$(X_PROG)] after=[$(after)]\n",
    "sub/show.html": "show page=[$(X_PAGE)] k=[$(k)]\n",
    "form.html": "<form>\n<@if> $(len:name) > 0\n<p>Hello, $(name)! note=[$(note)]</p>\n"
                 "<@end>\n</form>\n",
    "cookies.html": "<@cookie> sid\n<@cookie> theme\nsid=[$(len:sid) $(sid)] theme=[$(theme)]\n",
    "upload.html": "title=[$(title)] empty=[$(len:empty)] none=[$(len:none)] file=[$(file)]\n",
}


def main(tolm):
    with server.Site(tolm, PAGES) as site:
        def upload(*parts):
            r = site.upload(CGI, [(b"X_PAGE", b"upload.html")] + list(parts))
            m = re.search(r"file=\[([^\]]*)\]", r.text)
            expect(m, r.text)
            return r, m.group(1)

        def get_query_and_path_info():
            r = site.get(CGI + "?a=1&b=x+y%21&a=2")
            expect_eq(r.header("Content-Type"), ["text/html"])
            expect(r.text.startswith("\r\n<!-- Tolm v.8.7-8"), "banner first: %r" % r.text)
            expect(r.text.endswith("a=[1] b=[x y!] two=[2] prog=[Tolm] after=[]\n"), r.text)
            r = site.get(CGI + "/sub/show.html?k=v")
            expect(r.text.endswith("show page=[%s/sub/show.html] k=[v]\n" % site.site_root),
                   r.text)
            r = site.get(CGI + "/sub")
            expect("Invalid (not existing/regular file: %s/sub) X_PAGE value: /sub"
                   % site.site_root in r.text, r.text)

        # A POST takes its page from the X_PAGE field, not from PATH_INFO.
        def urlencoded_post():
            r = site.post(CGI + "/ignored.html", b"X_PAGE=form.html&name=Ann+%26+Bob&"
                          b"note=50%25+%3Cb%3E", URLENCODED)
            expect("<p>Hello, Ann & Bob! note=[50% <b>]</p>" in r.text, r.text)
            r = site.post(CGI, b"X_PAGE=form.html&name=", URLENCODED)
            expect("<form>" in r.text and "Hello" not in r.text, r.text)

        def cookies_in_and_out():
            r = site.get(CGI + "/cookies.html?X_ServerCOOKIES=sid+gone&sid=a%20b&"
                         "X_SessionCOOKIES=theme&theme=dark",
                         headers={"Cookie": "sid=old%21; theme=light"})
            expect_eq(r.header("Set-Cookie"), [
                "sid=a%20b; path=/; expires=31-Dec-2037 23:55:00 GMT ",
                "gone=NULL; path=/; expires=Wednesday, 21-Aug-1996 01:21:36 GMT ",
                "theme=dark; path=/; ",
            ], "Set-Cookie lines")
            expect(r.text.endswith("sid=[4 old!] theme=[light]\n"), r.text)
            r = site.get(CGI + "/cookies.html", headers={"Cookie": "sid=" + "%41" * 2000})
            expect("sid=[2000 AAA" in r.text, r.text)
            # lighttpd refuses line breaks in the URL; the body carries them.
            r = site.post(CGI, b"X_PAGE=cookies.html&X_ServerCOOKIES=x%0D%0ALocation:"
                          b"http://evil/+ok&ok=1", URLENCODED)
            expect_eq(r.header("Location"), [])
            expect_eq([c.strip() for c in r.header("Set-Cookie")],
                      ["ok=1; path=/; expires=31-Dec-2037 23:55:00 GMT"])

        def binary_upload_is_stored_byte_for_byte():
            data = bytes(range(256)) * 64 + b"\r\n--" + BOUNDARY[:-1] + b"\r\n\r\n\0\0"
            data += os.urandom(3 << 20)
            r, path = upload((b"title", b"my \xc3\xa9 file"), (b"empty", b""),
                             (b"file", b"C:\\Users\\me\\photo.bin", data), (b"none", b"", b""))
            expect("title=[my &ordmas;\xa9 file] empty=[0] none=[0]"
                   in r.body.decode("latin-1"), r.text)
            expect(re.fullmatch(re.escape(site.path("tmp")) + r"/photo\.bin\.\.\d+\.3", path),
                   path)
            with open(path, "rb") as f:
                expect(f.read() == data, "stored bytes differ")
            r, path = upload((b"file", b"../../../home/x.config", b"not the config"))
            expect_eq(path.rsplit(".", 2)[0], site.path("tmp", "x.config."))

        def hostile_input():
            r = site.get(CGI + "?X_PAGE=" + "a/" * 300 + "x.page")
            expect("Invalid (too long) X_PAGE value: a/a/" in r.text, r.text)
            r = site.post(CGI, b"--zz\r\nContent-Disposition: form-data; name=\"a\"\r\n\r\ncut",
                          "multipart/form-data; boundary=zz")
            expect("Broken Input..." in r.text and "a=[" not in r.text, r.text)
            r = site.post(CGI, b"\xff\xfe" * 5000 + b"\r\n" + b"name=\"" * 3000,
                          "multipart/form-data")
            expect_eq(r.status, 200)
            r = site.post(CGI, b"--zz\r\nX-Pad: " + b"p" * 100000 + b"\r\nContent-Disposition:"
                          b" form-data; name=\"after\"\r\nX-Pad: " + b"q" * 100000 +
                          b"\r\n\r\nfine\r\n--zz--\r\n", "multipart/form-data; boundary=zz")
            expect("after=[fine]" in r.text, r.text)
            with open(site.path("home", "x.config")) as f:
                expect(f.read().startswith("127.0.0.1:%d " % site.port), "x.config changed")
            expect_eq(sorted(os.listdir(site.path("site"))), sorted({n.split("/")[0] for n in PAGES}))

        return server.run_checks([
            get_query_and_path_info, urlencoded_post, cookies_in_and_out,
            binary_upload_is_stored_byte_for_byte, hostile_input,
        ])


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
