"""The example site in examples/ under lighttpd, used as a visitor would."""
import os
import sys

import server
from server import CGI, expect, multipart

EXAMPLES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "examples")


def main(tolm):
    with open(os.path.join(EXAMPLES, "x.config.in")) as f:
        config = f.read()
    with open(os.path.join(EXAMPLES, "x.site")) as f:
        settings = f.read()
    with server.Site(tolm, root=os.path.join(EXAMPLES, "site"), config=config,
                     settings=settings) as site:

        def home_page_links_the_others():
            r = site.get(CGI)
            for text in ('href="/cgi-bin/Tolm/form.html"', 'href="/cgi-bin/Tolm/upload.html"',
                         'href="/cgi-bin/Tolm/guestbook.html"', "TolmDemo on "):
                expect(r.status == 200 and text in r.text, r.text)

        def form_and_upload():
            r = site.post(CGI, b"X_PAGE=form.html&name=Ann&message=Hi+there",
                          "application/x-www-form-urlencoded")
            expect("Hello, <b>Ann</b>! You wrote: <i>Hi there</i>" in r.text, r.text)
            body = multipart(b"xyz", [(b"X_PAGE", b"upload.html"), (b"note", b"notes"),
                                      (b"file", b"notes.txt", b"12345\n")])
            r = site.post(CGI, body, "multipart/form-data; boundary=xyz")
            expect("Received <b>notes</b>" in r.text and "<pre>\n6\n</pre>" in r.text, r.text)
            expect(not [n for n in os.listdir(site.path("tmp")) if "notes.txt" in n], "kept")

        def failing_page_shows_the_error_page():
            r = site.get(CGI + "/oops.html")
            # The safe profile shows no server paths to the visitor.
            expect("<h1>Something went wrong</h1><pre> The page /oops.html raised an error."
                   "</pre>" in r.text and site.site_root not in r.text, r.text)
            expect("Never shown" not in r.text, r.text)

        def guestbook_keeps_entries_as_data():
            form = "application/x-www-form-urlencoded"
            r = site.get(CGI + "/guestbook.html")
            expect("No entries yet." in r.text, r.text)
            r = site.post(CGI, b"X_PAGE=guestbook.html&action=add&name=O%27Brien&"
                          b"note=x%27%3B+DROP+TABLE+guestbook%3B+--", form)
            expect("your entry is number 1." in r.text, r.text)
            site.post(CGI, b"X_PAGE=guestbook.html&action=add&name=Ann&note=hi", form)
            r = site.get(CGI + "/guestbook.html")
            expect("<b>O&#39;Brien</b>: x&#39;; DROP TABLE guestbook; --" in r.text
                   and "<b>Ann</b>: hi" in r.text and "TolmDemo on " in r.text, r.text)
            r = site.post(CGI, b"X_PAGE=guestbook.html&action=delete&id=1", form)
            expect("Entries removed: 1." in r.text and "Brien" not in r.text
                   and "<b>Ann</b>: hi" in r.text, r.text)
            evil = site.path("tmp", "evil.db")
            r = site.get(CGI + "/guestbook.html?X_BASE=sqlite:" + evil)  # the page's base wins
            expect("<b>Ann</b>: hi" in r.text and not os.path.exists(evil), r.text)


        # The example's x.site bounds uploads at 2 MiB.
        def upload_over_the_site_limit_is_refused():
            body = multipart(b"xyz", [(b"X_PAGE", b"upload.html"),
                                      (b"file", b"big.bin", b"x" * ((2 << 20) + 1))])
            r = site.post(CGI, body, "multipart/form-data; boundary=xyz")
            expect(r.status == 413 and "Upload too large: a file of 2097153 bytes" in r.text,
                   r.text)

        return server.run_checks([home_page_links_the_others, form_and_upload,
                                  failing_page_shows_the_error_page,
                                  guestbook_keeps_entries_as_data,
                                  upload_over_the_site_limit_is_refused])


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
