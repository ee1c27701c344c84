// The yardstick for the PostgreSQL companion: one connection and one query
// straight through libpq, as a small C program would do it. The connection
// comes from the PG* environment variables.
#include <cstdio>
#include <libpq-fe.h>

int main(int argc, char **argv)
{
    const char *query = argc > 1 ? argv[1] : "select 1 as n";
    PGconn *conn = PQconnectdb("");
    if (PQstatus(conn) != CONNECTION_OK) {
        fprintf(stderr, "%s", PQerrorMessage(conn));
        return 1;
    }
    PGresult *res = PQexec(conn, query);
    int ok = PQresultStatus(res) == PGRES_TUPLES_OK;
    for (int r = 0; ok && r < PQntuples(res); r++) printf("%s\n", PQgetvalue(res, r, 0));
    PQclear(res);
    PQfinish(conn);
    return ok ? 0 : 1;
}
