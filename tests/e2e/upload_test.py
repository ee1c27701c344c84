"""Multipart uploads through lighttpd: fields, binary files stored byte for
byte in TMP_DIR, and a file field left empty."""
import os
import re
import sys

import server
from server import CGI, expect, expect_eq, multipart

PAGES = {
    "upload.html": "title=[$(title)] empty=[$(len:empty)] none=[$(len:none)]\n"
                   "file=[$(file)]\n",
}

BOUNDARY = b"----TolmBoundary7MA4YWxk"


def binary_data():
    # Every byte value, line ends, and near-boundaries inside the content.
    data = bytes(range(256)) * 64
    data += b"\r\n--" + BOUNDARY[:-1] + b"\r\n\r\n" + b"\x00" * 100
    return data + bytes(range(255, -1, -1)) * 300


def main(tolm):
    with server.Site(tolm, PAGES) as site:
        ctype = "multipart/form-data; boundary=" + BOUNDARY.decode()

        def stored_path(text):
            m = re.search(r"file=\[([^\]]*)\]", text)
            expect(m, text)
            return m.group(1)

        def binary_file_is_stored_byte_for_byte():
            data = binary_data()
            body = multipart(BOUNDARY, [
                (b"X_PAGE", b"upload.html"),
                (b"title", b"my \xc3\xa9 file"),
                (b"empty", b""),
                (b"file", b"C:\\Users\\me\\photo.bin", data),
                (b"none", b"", b""),
            ])
            r = site.post(CGI, body, ctype)
            expect_eq(r.status, 200)
            expect("title=[my &ordmas;\xa9 file]" in r.body.decode("latin-1"), r.text)
            expect("empty=[0] none=[0]" in r.text, r.text)
            path = stored_path(r.text)
            expect(re.fullmatch(re.escape(site.path("tmp")) + r"/photo\.bin\.\.\d+\.3", path),
                   path)
            with open(path, "rb") as f:
                got = f.read()
            expect_eq(len(got), len(data), "stored size")
            expect(got == data, "stored bytes differ")

        def client_path_is_cut_to_its_base_name():
            body = multipart(BOUNDARY, [
                (b"X_PAGE", b"upload.html"),
                (b"file", b"../../../home/x.config", b"not the config"),
            ])
            r = site.post(CGI, body, ctype)
            path = stored_path(r.text)
            expect_eq(os.path.dirname(path), site.path("tmp"))
            with open(site.path("home", "x.config")) as f:
                expect("127.0.0.1" in f.read(), "x.config was overwritten")
            with open(path, "rb") as f:
                expect_eq(f.read(), b"not the config")

        def large_upload():
            data = os.urandom(3 * 1024 * 1024)
            body = multipart(BOUNDARY, [(b"X_PAGE", b"upload.html"), (b"file", b"big", data)])
            r = site.post(CGI, body, ctype)
            with open(stored_path(r.text), "rb") as f:
                expect(f.read() == data, "large upload differs")

        return server.run_checks([
            binary_file_is_stored_byte_for_byte, client_path_is_cut_to_its_base_name,
            large_upload,
        ])


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
