// String tools of form decoding: words, percent escapes, URL and shell
// escaping, and the line reader of the multipart decoder.
#include <cstdlib>
#include <cstring>
#include "form/form.h"

// A new block holding line up to (not including) the first stop or the end.
char *makeword(const char *line, char stop) {
    size_t len = 0;
    while (line[len] && line[len] != stop) len++;
    char *word = static_cast<char *>(malloc(len + 1));
    memcpy(word, line, len);
    word[len] = '\0';
    return word;
}

// Value of one hexadecimal digit, unchecked. The high digit is masked to
// four bits; the low one is not, so a bad low digit spills into the high
// nibble before the byte is cut to 8 bits.
static int hexdigit(char c) {
    return c < 'A' ? c - '0' : (c & 0xdf) - 55;
}

char x2c(const char *what) {
    if (!what[0]) return 0;
    int v = 16 * (hexdigit(what[0]) & 15) + hexdigit(what[1]);
    return static_cast<char>(static_cast<unsigned char>(v & 0xff));
}

// Decodes "%XY" escapes in place. A "%" without two following characters is
// kept as it stands: the scan never steps over the end of the string.
void unescape_url(char *url) {
    size_t x = 0, y = 0;
    for (; url[y]; ++x, ++y) {
        url[x] = url[y];
        if (url[y] == '%' && url[y + 1] && url[y + 2]) {
            url[x] = x2c(&url[y + 1]);
            y += 2;
        }
    }
    url[x] = '\0';
}

// ASCII letters and digits pass; every other byte becomes "%xx".
void escape_url(const char *src, char *dst) {
    static constexpr char hex[] = "0123456789abcdef";
    for (; *src; ++src) {
        unsigned char c = static_cast<unsigned char>(*src);
        if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) {
            *dst++ = static_cast<char>(c);
        } else {
            *dst++ = '%';
            *dst++ = hex[c >> 4];
            *dst++ = hex[c & 15];
        }
    }
    *dst = '\0';
}

void plustospace(char *str) {
    for (; *str; ++str)
        if (*str == '+') *str = ' ';
}

int rind(const char *s, char c) {
    const char *p = strrchr(s, c);
    return (p && c) ? static_cast<int>(p - s) : -1;
}

int ind(const char *s, char c) {
    const char *p = strchr(s, c);
    return (p && c) ? static_cast<int>(p - s) : -1;
}

// Reads one line into s (size n): a carriage return is replaced by the byte
// after it; the line ends at a line feed, the byte 4, the end of input or
// when index n-1 is reached, and the byte at the stopping index becomes the
// terminator. Returns 1 when the stream is at its end afterwards.
int getLine(char *s, int n, FILE *f) {
    if (n <= 0) return feof(f) ? 1 : 0;
    int i = 0;
    for (;;) {
        int c = getc(f);
        if (c == '\r') c = getc(f);
        if (c == EOF || c == '\n' || c == 4 || i == n - 1) {
            s[i] = '\0';
            return feof(f) ? 1 : 0;
        }
        s[i++] = static_cast<char>(c);
    }
}

// Puts a backslash before every shell metacharacter, in place; cmd must have
// room for the added backslashes. Filled from the end, so every character
// moves once however many metacharacters there are.
void escape_shell_cmd(char *cmd) {
    static constexpr char meta[] = "&;`'\"|*?~<>^()[]{}$\\";
    auto special = [](char c) { return c && strchr(meta, c); };
    size_t len = strlen(cmd), extra = 0;
    for (size_t x = 0; x < len; ++x) extra += special(cmd[x]);
    cmd[len + extra] = '\0';
    for (size_t x = len; x-- > 0;) {
        cmd[x + extra] = cmd[x];
        if (special(cmd[x])) cmd[x + --extra] = '\\';
    }
}

const char *GETenv(const char *name) {
    const char *v = getenv(name);
    return v ? v : "";
}
