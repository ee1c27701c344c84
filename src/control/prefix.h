// Keyword tests for the block commands: does a line begin with a tag?
#pragma once

#include <cstddef>
#include <cstring>

// True when S begins with the literal TAG (compared over the tag's length).
template <size_t N>
inline bool has_prefix(const char *s, const char (&tag)[N]) {
    return strncmp(s, tag, N - 1) == 0;
}

// True when S begins with "<@".
inline bool is_command(const char *s) {
    return s[0] == '<' && s[1] == '@';
}
