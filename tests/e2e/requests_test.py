"""Requests through lighttpd: query strings, page selection, URL-encoded
posts and cookies both ways."""
import sys
import urllib.parse

import server
from server import CGI, expect, expect_eq

PAGES = {
    "x.page": "default a=[$(a)] b=[$(b)] two=[$(mval:a:2)] prog=[$(X_PROG)]\n",
    "sub/show.html": "show page=[$(X_PAGE)] k=[$(k)]\n",
    "form.html": "\n".join([
        "<form method=post>",
        "<@if> $(len:name) > 0",
        "<p>Hello, $(name)! note=[$(note)]</p>",
        "<@end>",
        "</form>",
        ""]),
    "cookies.html": "\n".join([
        "<@cookie> sid",
        "<@cookie> theme",
        "sid=[$(sid)] theme=[$(theme)]",
        ""]),
}


def main(tolm):
    with server.Site(tolm, PAGES) as site:

        def get_with_query():
            r = site.get(CGI + "?a=1&b=x+y%21&a=2")
            expect_eq(r.status, 200)
            expect_eq(r.header("Content-Type"), ["text/html"])
            expect(r.text.startswith("\r\n<!-- Tolm v.8.7-8"), "banner first: %r" % r.text)
            expect(r.text.endswith("default a=[1] b=[x y!] two=[2] prog=[Tolm]\n"), r.text)

        def path_info_picks_the_page():
            r = site.get(CGI + "/sub/show.html?k=v")
            expect(r.text.endswith("show page=[%s/sub/show.html] k=[v]\n"
                                   % site.path("site")), r.text)

        # A POST takes its page from the X_PAGE field, not from PATH_INFO.
        def urlencoded_post():
            body = urllib.parse.urlencode({"X_PAGE": "form.html", "name": "Ann & Bob",
                                           "note": "50% <b>"})
            r = site.post(CGI + "/ignored.html", body.encode(),
                          "application/x-www-form-urlencoded")
            expect("<p>Hello, Ann & Bob! note=[50% <b>]</p>" in r.text, r.text)

        def post_with_empty_field():
            r = site.post(CGI, b"X_PAGE=form.html&name=", "application/x-www-form-urlencoded")
            expect_eq(r.status, 200)
            expect("<form method=post>" in r.text and "Hello" not in r.text, r.text)

        def cookies_in_and_out():
            r = site.get(CGI + "/cookies.html?X_ServerCOOKIES=sid+gone&sid=a%20b&"
                         "X_SessionCOOKIES=theme&theme=dark",
                         headers={"Cookie": "sid=old%21; theme=light"})
            expect_eq(r.header("Set-Cookie"), [
                "sid=a%20b; path=/; expires=31-Dec-2037 23:55:00 GMT ",
                "gone=NULL; path=/; expires=Wednesday, 21-Aug-1996 01:21:36 GMT ",
                "theme=dark; path=/; ",
            ], "Set-Cookie lines")
            # "cookie" overwrites the request's values with the cookies.
            expect(r.text.endswith("sid=[old!] theme=[light]\n"), r.text)

        def unknown_page_is_reported():
            r = site.get(CGI + "/nope.html")
            expect("Invalid (not existing/regular file: %s/nope.html) X_PAGE value: /nope.html"
                   % site.path("site") in r.text, r.text)

        return server.run_checks([
            get_with_query, path_info_picks_the_page, urlencoded_post, post_with_empty_field,
            cookies_in_and_out, unknown_page_is_reported,
        ])


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
