// Shared pieces of the fuzz targets: the scratch directory, cutting one
// input into fields, feeding standard input, and running code that may end
// the process in a child whose coverage still reaches the fuzzer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// A private directory under /tmp, made once; X_HOME and TMP_DIR name it and
// it is the working directory. Returns its path.
const char *fuzz_scratch();

// Removes everything inside DIR (not DIR itself).
void fuzz_empty(const char *dir);

// Cuts DATA into N fields at its first N-1 NUL bytes; the last field keeps
// the rest (NUL bytes included) and missing fields are empty.
std::vector<std::string> fuzz_fields(const uint8_t *data, size_t size, int n);

// Makes standard input read TEXT from its start.
void fuzz_stdin(const std::string &text);

// Writes TEXT to the file PATH; false when it cannot be written.
bool fuzz_write(const std::string &path, const std::string &text);

// Runs FN(ARG) in a forked child and waits for it. Code that ends the
// process (the error path, quit) or leaves state behind runs there; the
// child's coverage counters are shared with this process. A child killed by
// a signal or ended by a sanitizer makes this process abort with the same
// input, so the fuzzer records it as a crash.
//
// With BUDGET_MS above 0 the child may use that much processor time; a
// child that runs out of it ends quietly and the call answers false. Pages
// may loop for ever by design, so for them this is no finding; the parts a
// page is made of are fuzzed on their own where every hang is one.
bool fuzz_in_child(void (*fn)(void *), void *arg, int budget_ms = 0);
