// Start-up: the global container, the environment file, the temporary directory.
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "diag/diag.h"
#include "runtime/runtime.h"
#include "storage/heap.h"
#include "x.h"

static char buff_env[4096];  // NAME=value texts given to putenv; never freed
static int env_used;         // bytes of buff_env taken

int X_avlcmp(avl *a, avl *b) {
    return strcmp(static_cast<const char *>(a->key), static_cast<const char *>(b->key));
}

int str_copy(char *dst, const char *src) {
    int n = 0;
    while ((dst[n] = src[n]) != 0) n++;
    return n;
}

// Sets up the run-wide heap, the three trees and the environment.
int X_start() {
    x_BUFFERS.hp = X_heap_new();
    x_BUFFERS.freelist = nullptr;
    x_BUFFERS.vtree = {nullptr, X_avlcmp};
    x_BUFFERS.ftree = {nullptr, X_avlcmp};
    x_BUFFERS.ctree = {nullptr, X_avlcmp};
    X_env();
    X_fp = nullptr;
    return 0;
}

// The home of x.config: $X_HOME, else the first of the usual directories
// that holds an x.config, else the current directory.
static char *find_home() {
    static char here[] = ".";
    static char homes[][16] = {"/Tolm", "/etc/Tolm", "/opt/Tolm", "/apps/Tolm"};
    if (char *home = getenv("X_HOME")) return home;
    for (char *h : homes) {
        char path[80];
        X_join(path, sizeof path, {h, "/x.config"});
        if (access(path, F_OK) == 0) return h;
    }
    return here;
}

// Puts each NAME=value line of F into the environment. The texts live in
// buff_env; a line that no longer fits is skipped, and each takes its
// length plus two bytes of the arena.
static void load_env(FILE *f) {
    char line[3000];
    while (fgets(line, sizeof line, f)) {
        if (line[0] == '#' || !strchr(line, '=')) continue;
        int len = static_cast<int>(strlen(line));
        if (len && line[len - 1] == '\n') line[--len] = 0;
        if (static_cast<int>(sizeof buff_env) - env_used <= len) continue;
        char *slot = buff_env + env_used;
        memcpy(slot, line, len + 1);
        putenv(slot);
        env_used += len + 2;
    }
}

// Finds X_HOME, loads its x.env into the environment and settles TMP_DIR
// (default /tmp, exported when the arena has room for it).
int X_env() {
    X_HOME = find_home();
    char path[4096];
    int n = X_join(path, sizeof path, {X_HOME, "/x.env"});
    if (FILE *f = n < static_cast<int>(sizeof path) ? fopen(path, "r") : nullptr) {
        load_env(f);
        fclose(f);
    }
    TMP_DIR = getenv("TMP_DIR");
    if (!TMP_DIR) {
        static char tmp[] = "/tmp";
        TMP_DIR = tmp;
        if (static_cast<int>(sizeof buff_env) - env_used >= 15) {
            char *slot = buff_env + env_used;
            X_join(slot, static_cast<int>(sizeof buff_env) - env_used, {"TMP_DIR=", tmp});
            putenv(slot);
            env_used += static_cast<int>(strlen(slot)) + 2;
        }
    }
    return 0;
}
