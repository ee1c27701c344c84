"""Writes the seed inputs of every fuzz target into NAME/seeds/ (run it from
anywhere; it rewrites only the files it names). Pages come from the page
cases under tests/pages; the rest are real request shapes and the
language's own examples. Inputs kept from fuzzing runs live beside these
under names of their own and are left alone."""
import glob
import hashlib
import os
import re

HERE = os.path.dirname(os.path.abspath(__file__))
PAGES = os.path.join(HERE, "..", "tests", "pages")

CRLF = b"\r\n"


def body(boundary, parts):
    """A browser's multipart body: parts are (headers, content)."""
    out = b""
    for disp, ctype, content in parts:
        out += b"--" + boundary + CRLF + b"Content-Disposition: form-data; " + disp + CRLF
        if ctype:
            out += b"Content-Type: " + ctype + CRLF
        out += CRLF + content + CRLF
    return out + b"--" + boundary + b"--" + CRLF


FF = b"---------------------------41184676334"
CH = b"----WebKitFormBoundary7MA4YWxkTrZu0gW"
SEEDS = {
    "query": [b"\x01\0a=1&b=x+y%21&a=2\0", b"\x03\0k=v\0/sub/show.html",
              b"\x02\0\0/p.html&k=v", b"\x01\0name=Ann+%26+Bob&note=50%25+%3Cb%3E\0",
              b"\x01\0a=1&&b=2&c=&d&\0", b"\x01\0%41%4a=%zz%4\0",
              b"\x03\0X_PAGE=a.html&q=search+term\0/x.page",
              b"\x01\0utm_source=news&utm_medium=email&id=%E2%82%AC&x%3Dy=1\0"],
    "urlencoded": [b"45\0X_PAGE=form.html&name=Ann+%26+Bob&note=50%25",
                   b"0\0a=1", b"\0a=1", b"5\0a=1&b=2", b"-1\0a=1&b", b"3\0&&&&",
                   b"99999999999\0name=x%0D%0ASet-Cookie:+a=b"],
    "multipart": [
        body(FF, [(b'name="title"', None, b"My report"),
                  (b'name="file"; filename="C:\\dir\\report.txt"', b"text/plain",
                   b"line one\r\nline two\r\n")]),
        body(CH, [(b'name="X_PAGE"', None, b"upload.html"),
                  (b'name="empty"', None, b""),
                  (b'name="none"; filename=""', b"application/octet-stream", b""),
                  (b'name="pic"; filename="../../etc/cron.d/x"', b"image/png",
                   b"\x89PNG\r\n\x1a\n\0\0\0\rIHDR--" + CH)]),
        body(CH, [(b'name="a"', None, b"x")])[:-20],
        b"--b\r\nContent-Disposition: form-data; name=\"f\"; filename=\"/abs/evil.sh\"\r\n\r\n"
        b"#!/bin/sh\r\n--b--\r\n",
    ],
    "cookie": [b"sid=abc123; theme=dark%20blue\0sid\0sid theme\0s2\0value",
               b"a=1;b=2\0b\0b\0\0line\r\nSet-Cookie: evil=1",
               b"theme=\0theme\0\0theme\0",
               b"x=%0d%0aLocation:%20/\0x\0x y z\0x\0a b"],
    "config": [b"127.0.0.1:8080 @ROOT@ mysite hold\n*:* @ROOT@\n\0TMP_DIR=/tmp\nFOO=bar\n"
               b"\0127.0.0.1:8080\0sub/p.html\0x.error",
               b"*:* @ROOT@\n\0# comment\n\0example.org\0../outside.html\0",
               b"example.org:80 @ROOT@/\n\0\0example.org\0@ROOT@/./sub//p.html\0",
               b"h:1 @ROOT@ b\n\0\0h:1\0/etc/passwd\0%2e%2e/outside.html",
               b"h:1 @ROOT@ b x\n\0\0h:1\0sub/../../site2/p.html\0"],
    "cond": [b"$(i) == 42", b"icmp $(i) >= 40 && ( cmp $(s) like H* || fcmp $(f) > 3.0 )",
             b"cmp nick vlike J* && cmp a == b || cmp name vlike J*",
             b"(cmp name vlike J* || cmp a == b) && icmp 007 == 8",
             b"cmp \"$(s)\" like \"*.pdf||*.doc\"", b"fmt d date && !fmt f int",
             b"!e && m", b"exist file.txt || file file.txt || dir .", b"EOF",
             b"((((cmp a == a))))", b"cmp 'a b' != \"c d\""],
    "patt": [b"*.pdf||*.doc\0report.pdf", b"*.txt&&!*\\**\0notes.txt", b"[A-Z]*\0README",
             b"[]&&*x\0long", b"J*n\0John", b"?[!a-c]*[0-9]\0xd9", b"*a*a*a*a*b\0aaaaaaaaaaaaaaaa",
             b"\\*\\?\0*?"],
    "expr": [b"1+2*3", b"(1+2)*3", b"-5%3", b"10/4.0", b"7|8&3", b"1+", b"((((1))))",
             b"9223372036854775807+1", b"-9223372036854775807-1", b"1/0", b"5%0", b"1.5/0"],
    "date": [b"DD/MM/YYYY HH:MI:SS\x0024/12/2023 18:30:05\x001703442605",
             b"YYYY-MM-DD\x002026-02-29\x000", b"dd.mm.yy hh:mi\x0031.12.99 23:59\x00-1",
             b"YY\x005\x00253402300800", b"Y\x00\x00", b"HH:MI\x0099:99\x00x"],
    "args": [b"one 'two three' [four five] {six} \"seven\" `8` ~9~ ^10^\0",
             b"a,b;;c\0,;", b"  \t\x01 x\0", b"'unclosed quote\0'", b"[nested [x] y]\0"],
}


def page_sources():
    """The page files of every page case."""
    for case in sorted(glob.glob(os.path.join(PAGES, "**", "*.case"), recursive=True)):
        with open(case, "rb") as f:
            text = f.read()
        for m in re.finditer(rb"^--- file (\S+\.html)[^\n]*\n(.*?)(?=^--- |\Z)", text,
                             re.S | re.M):
            yield m.group(2)


def write(target, data):
    d = os.path.join(HERE, target, "seeds")
    os.makedirs(d, exist_ok=True)
    name = "seed-" + hashlib.sha1(data).hexdigest()[:12]
    with open(os.path.join(d, name), "wb") as f:
        f.write(data)


def main():
    for target, items in SEEDS.items():
        for data in items:
            write(target, data)
    for page in page_sources():
        write("page", page)


if __name__ == "__main__":
    main()
