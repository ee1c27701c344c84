// The arithmetic evaluator of "expr:": the whole input is one expression.
#include <cstdlib>
#include <string>

#include "harness.h"
#include "subst/expr.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string text(reinterpret_cast<const char *>(data), size);
    long vi = 0;
    double vf = 0;
    int r = EXPR_parser(text.c_str(), &vi, &vf);
    if (r != 1 && r != 2) abort();
    return 0;
}
