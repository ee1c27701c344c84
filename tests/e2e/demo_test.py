"""The example site in examples/ under lighttpd, used as a visitor would and
as an attacker would: forged uploads, hostile names, bad cookies."""
import os
import sys

import server
from server import BOUNDARY, CGI, MULTIPART, URLENCODED, expect, expect_eq, multipart

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..",
                                "examples"))
import serve  # noqa: E402



def main(tolm):
    with serve.demo_site(tolm) as site:

        def home_page_links_the_others():
            r = site.get(CGI)
            expect_eq(r.header("Content-Type"), ["text/html; charset=utf-8"])
            for text in ('href="/cgi-bin/Tolm/form.html"', 'href="/cgi-bin/Tolm/upload.html"',
                         'href="/cgi-bin/Tolm/guestbook.html"', "TolmDemo on ", "Grüße"):
                expect(r.status == 200 and text in r.text, r.text)

        def form_escapes_and_ignores_x_names():
            r = site.post(CGI + "/form.html", b"name=%3Cb%3EAnn&message=%22%27%3B+id"
                          b"&X_PAGE=oops.html", URLENCODED)
            expect("Hello, <b>&lt;b&gt;Ann</b>! You wrote: <i>&quot;&#39;; id</i>" in r.text
                   and 'value="&quot;&#39;; id"' in r.text, r.text)

        def uploads_checked_before_kept():
            def send(filename, data):
                return site.upload(CGI + "/upload.html", [(b"note", b"<i>n</i>"),
                                                          (b"file", filename, data)]).text
            for filename, data, want in (
                    (b"a.txt", b"12345\n", "Kept <b>a.txt</b> (6 bytes) as upload 1."),
                    (b"C:\\dir\\b.csv", b"x", "Kept <b>b.csv</b> (1 bytes) as upload 2."),
                    (b"$(id).txt", b"x", "that is not an upload"),
                    (b"a b.txt", b"x", "that is not an upload"),
                    (b".hidden.txt", b"x", "must start with a letter"),
                    (b"page.html", b"x", "only .txt"),
                    (b"empty.txt", b"", "must hold 1 to 102400 bytes"),
                    (b"big.txt", b"x" * 102401, "must hold 1 to 102400 bytes")):
                text = send(filename, data)
                expect(want in text, "%s: %s" % (filename, text))
            # A plain field that names a file is not an upload.
            secret = site.path("home", "x.config")
            for body, kind in ((b"file=" + secret.encode(), URLENCODED),
                               (multipart(BOUNDARY, [(b"file", secret.encode())]), MULTIPART)):
                text = site.post(CGI + "/upload.html", body, kind).text
                expect("that is not an upload" in text and os.path.exists(secret), text)
            text = site.get(CGI + "/upload.html").text
            expect("<td>a.txt</td><td>6</td><td>&lt;i&gt;n&lt;/i&gt;</td>" in text
                   and "<td>3</td>" not in text, text)
            expect_eq(sorted(os.listdir(site.path("data"))),
                      ["README", "demo.db", "upload-1", "upload-2"])
            expect(not [n for n in os.listdir(site.path("tmp")) if ".." in n], "uploads left")

        def error_page_escapes_and_hides_paths():
            r = site.get(CGI + "/oops.html?x=%3Cscript%3E")
            expect("<h1>Something went wrong</h1>" in r.text and "raised an error." in r.text
                   and "Never shown" not in r.text, r.text)
            # A missing page gets the built-in message, without the server's paths.
            for r in (r, site.get(CGI + "/nosuch.html")):
                expect(site.dir not in r.text and "<script>" not in r.text, r.text)

        def guestbook_keeps_entries_as_data():
            r = site.get(CGI + "/guestbook.html")
            expect("No entries yet." in r.text, r.text)
            r = site.post(CGI + "/guestbook.html", b"action=add&name=O%27Brien&"
                          b"note=x%27%3B+DROP+TABLE+guestbook%3B+--", URLENCODED)
            expect("your entry is number 1." in r.text, r.text)
            site.post(CGI + "/guestbook.html", b"action=add&name=Ann&note=%3Cs%3Ehi", URLENCODED)
            r = site.get(CGI + "/guestbook.html")
            expect("<b>O&#39;Brien</b>: x&#39;; DROP TABLE guestbook; --" in r.text
                   and "<b>Ann</b>: &lt;s&gt;hi" in r.text and "TolmDemo on " in r.text, r.text)
            for bad in (b"1+or+1", b"0", b""):  # ids that are not plain keys delete nothing
                r = site.post(CGI + "/guestbook.html", b"action=delete&id=" + bad, URLENCODED)
                expect("Entries removed" not in r.text and "O&#39;Brien" in r.text, r.text)
            r = site.post(CGI + "/guestbook.html", b"action=delete&id=1", URLENCODED)
            expect("Entries removed: 1." in r.text and "Brien" not in r.text
                   and "<b>Ann</b>" in r.text, r.text)
            r = site.get(CGI + "/guestbook.html?X_BASE=sqlite:" + site.path("tmp", "evil.db"))
            expect("<b>Ann</b>" in r.text and not os.path.exists(site.path("tmp", "evil.db")),
                   r.text)

        def theme_cookie_only_known_values():
            r = site.post(CGI + "/prefs.html", b"choice=dark", URLENCODED)
            expect_eq((r.status, r.header("Location")), (302, ["/cgi-bin/Tolm/prefs.html"]))
            expect_eq(r.header("Set-Cookie"),
                      ["theme=dark; Path=/; Max-Age=31536000; HttpOnly; SameSite=Lax"])
            r = site.post(CGI + "/prefs.html", b"choice=%22%3E%3Cscript%3E", URLENCODED)
            expect(r.status == 200 and not r.header("Set-Cookie"), r.headers)
            for cookie, theme in (("theme=dark", "dark"), ("theme=%22%3E%3Cx", "light"),
                                  ("", "light")):
                r = site.get(CGI + "/prefs.html", {"Cookie": cookie} if cookie else {})
                expect('<body class="%s">' % theme in r.text
                       and '<b id="theme">%s</b>' % theme in r.text, r.text)

        # x.site bounds uploads at 2 MiB, before the page runs; the error
        # page shows the refusal.
        def upload_over_the_site_limit_is_refused():
            r = site.upload(CGI + "/upload.html", [(b"file", b"big.bin", b"x" * ((2 << 20) + 1))])
            expect(r.status == 413 and "<h1>Something went wrong</h1>" in r.text
                   and "Upload too large: a file of 2097153 bytes" in r.text, r.text)

        return server.run_checks([home_page_links_the_others, form_escapes_and_ignores_x_names,
                                  uploads_checked_before_kept,
                                  error_page_escapes_and_hides_paths,
                                  guestbook_keeps_entries_as_data,
                                  theme_cookie_only_known_values,
                                  upload_over_the_site_limit_is_refused])


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
