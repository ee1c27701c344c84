"""The example site in examples/ under lighttpd: every page answers and the
form and the upload work as a visitor would use them."""
import os
import sys

import server
from server import expect, expect_eq, multipart

EXAMPLES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "examples")


def main(tolm):
    with open(os.path.join(EXAMPLES, "x.config.in")) as f:
        config = f.read()
    with server.Site(tolm, root=os.path.join(EXAMPLES, "site"), config=config) as site:
        cgi = server.CGI

        def home_page_links_the_others():
            r = site.get(cgi)
            expect_eq(r.status, 200)
            for link in ("/cgi-bin/Tolm/form.html", "/cgi-bin/Tolm/upload.html"):
                expect('href="%s"' % link in r.text, r.text)
            expect("TolmDemo on " in r.text, r.text)

        def form_posts_to_itself():
            r = site.get(cgi + "/form.html")
            expect("<title>Tolm demo: Guest book</title>" in r.text, r.text)
            expect("Please tell us your name." in r.text, r.text)
            r = site.post(cgi, b"X_PAGE=form.html&name=Ann&message=Hi+there",
                          "application/x-www-form-urlencoded")
            expect("Hello, <b>Ann</b>! You wrote: <i>Hi there</i>" in r.text, r.text)

        def upload_reports_the_size_and_removes_the_file():
            body = multipart(b"xyz", [(b"X_PAGE", b"upload.html"), (b"note", b"notes"),
                                      (b"file", b"notes.txt", b"12345\n")])
            r = site.post(cgi, body, "multipart/form-data; boundary=xyz")
            expect("Received <b>notes</b>" in r.text, r.text)
            expect("<pre>\n6\n</pre>" in r.text, r.text)
            expect_eq([n for n in os.listdir(site.path("tmp")) if "notes.txt" in n], [])

        def failing_page_shows_the_error_page():
            r = site.get(cgi + "/oops.html")
            expect("<h1>Something went wrong</h1><pre> The page %s/oops.html raised an error."
                   "</pre>" % site.site_root in r.text, r.text)
            expect("Never shown" not in r.text, r.text)

        return server.run_checks([
            home_page_links_the_others, form_posts_to_itself,
            upload_reports_the_size_and_removes_the_file, failing_page_shows_the_error_page,
        ])


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
