// Helpers of the back-end tests: the error text, statements that must
// succeed, and the rows of a query as text.
#pragma once
#include <gtest/gtest.h>

#include <string>

#include "db/db.h"
#include "storage/heap.h"

inline std::string error_text()
{
    char buff[X_SQLERR] = "";
    sql_error(buff);
    return buff;
}

inline void exec(const std::string &q)
{
    ASSERT_EQ(X_noselect_sql(q.c_str(), 0, nullptr), 0) << q << ": " << error_text();
}

// One row as "name=value" joined by ",", NULL as "~".
inline std::string cells(int numb, X_val *val)
{
    std::string s;
    for (int i = 0; i < numb; i++)
        s += std::string(i ? "," : "") + val[i].name + "=" +
             (val[i].len <= 0 ? "~" : std::string(val[i].value, val[i].len));
    return s;
}

// The rows of Q, each ended by ";", then "ERR: message" if a step failed;
// END gets the result of the last fetch.
inline std::string rows(const char *cursor, const std::string &q, int *end = nullptr)
{
    X_heap *hp = X_heap_new();
    X_val val[X_MAXVAL];
    int numb = 0, rc = -1;
    std::string out;
    if (X_select_sql(0, cursor, q.c_str(), hp, &numb, val) == 0) {
        while ((rc = X_select_sql(1, cursor, nullptr, hp, &numb, val)) == 0) {
            out += cells(numb, val) + ";";
            X_heap_reduce(hp);
        }
        X_select_sql(2, cursor, nullptr, hp, &numb, val);
    }
    if (rc == -1) out += "ERR: " + error_text();
    if (end) *end = rc;
    X_heap_free(hp);
    return out;
}

// V as an SQL string literal.
inline std::string quoted(const std::string &v)
{
    std::string lit = "'";
    for (char ch : v) lit += ch == '\'' ? std::string("''") : std::string(1, ch);
    return lit + "'";
}
