"""Status, header lines and cookies set by the page, as a client receives
them through lighttpd; a child process or an error before the first body
byte still gets a complete header."""
import sys

import server
from server import CGI, expect, expect_eq

PAGES = {
    "x.page": "plain\n",
    "missing.html": "<@status> 404\n<h1>No such thing</h1>\n",
    "go.html": "<@redirect> $(to)\n",
    "go301.html": "<@redirect> /cgi-bin/Tolm/x.page 301\n",
    "cookies.html": "<@setcookie> sid 'a b' Path=/ HttpOnly SameSite=Strict\n"
                    "<@clearcookie> old\nset\n",
    "json.html": "<@setheader> Content-Type application/json\n<@html> off\n{\"a\": $(json:a)}\n",
    "child.html": "<@setheader> X-Before-Child yes\n<@shell> echo from-child\nafter\n",
    "late.html": "body first\n<@status> 500\n",
}


def main(tolm):
    with server.Site(tolm, PAGES) as site:
        def status_and_redirects():
            r = site.get(CGI + "/missing.html")
            expect_eq(r.status, 404)
            expect(r.text.endswith("<h1>No such thing</h1>\n"), r.text)
            r = site.get(CGI + "/go.html?to=/cgi-bin/Tolm/x.page")
            expect_eq((r.status, r.header("Location")), (302, ["/cgi-bin/Tolm/x.page"]))
            r = site.get(CGI + "/go301.html")
            expect_eq(r.status, 301)
            # A line break in the request cannot add a header line (lighttpd
            # refuses it in the URL: the body carries it).
            r = site.post(CGI, b"X_PAGE=go.html&to=/x%0D%0ASet-Cookie:+evil=1",
                          "application/x-www-form-urlencoded")
            expect_eq((r.status, r.header("Set-Cookie")), (200, []))
            expect("invalid URL" in r.text, r.text)

        def cookies_and_content_type():
            r = site.get(CGI + "/cookies.html")
            expect_eq(r.header("Set-Cookie"), [
                "sid=a%20b; Path=/; HttpOnly; SameSite=Strict",
                "old=; Max-Age=0; Expires=Thu, 01 Jan 1970 00:00:00 GMT"])
            r = site.get(CGI + "/json.html?a=%3C%22x%22%3E")
            expect_eq(r.header("Content-Type"), ["application/json"])
            expect_eq(r.body, b'{"a": "\\u003c\\"x\\"\\u003e"}\n')

        def child_and_late_commands():
            r = site.get(CGI + "/child.html")
            expect_eq(r.header("X-Before-Child"), ["yes"])
            expect(r.text.endswith("from-child\nafter\n"), r.text)
            r = site.get(CGI + "/late.html")
            expect_eq(r.status, 200)
            expect("body first\n" in r.text and
                   "<@status>: the body of the response has already started" in r.text, r.text)

        def pages_without_commands_unchanged():
            r = site.get(CGI)
            expect_eq((r.status, r.header("Content-Type")), (200, ["text/html"]))
            expect_eq(r.body, b"\r\n<!-- Tolm v.8.7-8 (c) Tolm developers -->\n\nplain\n")

        return server.run_checks([status_and_redirects, cookies_and_content_type,
                                  child_and_late_commands, pages_without_commands_unchanged])


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
