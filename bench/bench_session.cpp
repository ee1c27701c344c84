// Sessions: the cost a session adds to a request on the SQLite store, that
// is loading 10 variables before the page and saving them changed after it.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <sqlite3.h>
#include <string>

#include "runtime/runtime.h"
#include "runtime/site.h"
#include "session/session.h"
#include "storage/heap.h"
#include "storage/store.h"

namespace {

constexpr int kVars = 10;

void setup() {
    static bool done;
    if (done) return;
    done = true;
    x_BUFFERS.hp = X_heap_new();
    x_BUFFERS.vtree = {nullptr, X_avlcmp};
    static char home[] = "/tmp/tolm-bench-session-XXXXXX";
    if (!mkdtemp(home)) abort();
    X_HOME = home;
    unsetenv("GATEWAY_INTERFACE");
    unsetenv("HTTP_COOKIE");
    // A stored session with its variables, whose id later requests send.
    X_session_start();
    for (int i = 0; i < kVars; i++)
        X_put_value(("S_v" + std::to_string(i)).c_str(), "a value of some thirty bytes..");
    X_session_save();
    char path[512], id[X_SID_LEN + 1] = "";
    snprintf(path, sizeof path, "%s/sessions-shell_00.db", home);  // no server: shell:00
    sqlite3 *db;
    sqlite3_stmt *st;
    if (sqlite3_open(path, &db) != SQLITE_OK ||
        sqlite3_prepare_v2(db, "SELECT sid FROM tolm_sessions", -1, &st, nullptr) != SQLITE_OK ||
        sqlite3_step(st) != SQLITE_ROW)
        abort();
    snprintf(id, sizeof id, "%s", reinterpret_cast<const char *>(sqlite3_column_text(st, 0)));
    sqlite3_finalize(st);
    sqlite3_close(db);
    setenv("HTTP_COOKIE", ("tolm_sid=" + std::string(id)).c_str(), 1);
    X_session_forget();
}

// One request's share: load, change every variable, save.
void BM_SessionLoadSave10(benchmark::State &state) {
    setup();
    long n = 0;
    for (auto _ : state) {
        if (X_session_start() != 0) state.SkipWithError("no session");
        for (int i = 0; i < kVars; i++)
            X_put_value(("S_v" + std::to_string(i)).c_str(), std::to_string(n++).c_str());
        X_session_save();
        X_session_forget();
    }
}
BENCHMARK(BM_SessionLoadSave10)->Unit(benchmark::kMicrosecond);

// A request that only reads its session: load, and no write at all.
void BM_SessionLoadOnly10(benchmark::State &state) {
    setup();
    for (auto _ : state) {
        if (X_session_start() != 0) state.SkipWithError("no session");
        X_session_save();
        X_session_forget();
    }
}
BENCHMARK(BM_SessionLoadOnly10)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
