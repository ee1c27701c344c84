// X_crypt: a one-way scrambler. The output depends on the input alone:
// the key is built from the input itself, so equal inputs always give
// equal outputs, and nothing is stored between calls but the key position.
#include <cstdio>
#include <cstring>

#include "subst/values.h"

int key_ptr = 0;  // position in the 32-byte key of the running call

namespace {

constexpr int key_size = 32;
constexpr int short_block = 15;  // inputs this short are spread over 15 bytes

// Spreads a short input over a full block so that short texts still give
// 30 digits: b[i] = in[i mod n] + in[i+1 mod n] + i + n(i+1), mod 256.
void spread(const unsigned char *in, int n, unsigned char *block)
{
    for (int i = 0; i < short_block; ++i)
        block[i] = static_cast<unsigned char>(in[i % n] + in[(i + 1) % n] + i + n * (i + 1));
}

// One output byte; the key byte at the current position is then replaced by
// its sum with the next one (never 0) and the position moves on.
unsigned char step(unsigned char *key, unsigned char src)
{
    int p = key_ptr;
    auto x = static_cast<unsigned char>((key[0] * p) ^ src ^ key[p]);
    int next = p < key_size - 1 ? p + 1 : 0;
    auto t = static_cast<unsigned char>(key[p] + key[next]);
    key[p] = t ? t : 1;
    key_ptr = next;
    return x;
}

}  // namespace

// Writes the lowercase hexadecimal scrambled form of in into out: 30 digits
// for inputs of up to 15 characters, two per character for longer ones.
// out must hold max(31, 2 * strlen(in) + 1) characters.
void X_crypt(const char *in, char *out)
{
    static const char hex[] = "0123456789abcdef";
    out[0] = 0;
    key_ptr = 0;
    int n = static_cast<int>(strlen(in));
    if (n == 0)
        return;

    auto src = reinterpret_cast<const unsigned char *>(in);
    unsigned char block[short_block];
    int m = n;
    if (n <= short_block) {
        spread(src, n, block);
        src = block;
        m = short_block;
    }
    unsigned char key[key_size];
    for (int j = 0; j < key_size; ++j)
        key[j] = src[j % m];

    int len = 0;
    for (int c = m - 1; c >= 0; --c) {
        unsigned char x = step(key, src[c]);
        out[len++] = hex[x >> 4];
        out[len++] = hex[x & 15];
    }
    out[len] = 0;
}
