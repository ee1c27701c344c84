// Shell mode: the command line and the page check.
#include <cstring>
#include <unistd.h>

#include "runtime/runtime.h"
#include "storage/store.h"
#include "x.h"

// Accepts PATH as the page when it exists, made absolute; -1 with a warning
// on standard output otherwise.
int X_checkpage(const char *path) {
    if (access(path, F_OK) != 0) {
        printf("\n!! WARNING: cannot access X_PAGE: [%s] \n", path);
        return -1;
    }
    if (path[0] == '/') {
        X_add_value("X_PAGE", path);
        return 0;
    }
    char dir[512];
    if (!getcwd(dir, sizeof dir)) {
        printf("\n!! WARNING: your path to X_PAGE is too long: [%s]...\n", path);
        return -1;
    }
    size_t dl = strlen(dir), pl = strlen(path);
    if (dl + pl + 4 > sizeof dir) {
        printf("\n!! WARNING: your path to X_PAGE is too long: [%s/%s] \n", dir, path);
        return -1;
    }
    dir[dl] = '/';
    memcpy(dir + dl + 1, path, pl + 1);
    X_add_value("X_PAGE", dir);
    return 0;
}

static const char help_text[] =
    "Usage: Tolm PAGE [-Name Value ...]\n"
    "       Tolm -V PAGE [-Name Value ...]\n"
    "       Tolm --version | --help\n"
    "\n"
    "Runs the page PAGE and writes the result to standard output; each\n"
    "-Name Value (or --Name Value) sets the page variable Name first.\n"
    "-V writes the banner comment before the page.\n"
    "Under a web server (REQUEST_METHOD set) the request chooses the page.\n"
    "\n"
    "Environment: X_HOME (the directory of x.config and x.env),\n"
    "TMP_DIR (temporary files and logs, default /tmp).\n"
    "See tolm(1) and the documentation in docs/.\n";

// "--version" or "--help" as the only argument prints and ends the run.
static void info_switch(int argc, char **argv) {
    if (argc != 2) return;
    if (strcmp(argv[1], "--version") == 0)
        printf("%s\n", X_VERSION_TEXT);
    else if (strcmp(argv[1], "--help") == 0)
        fputs(help_text, stdout);
    else
        return;
    X_exit(0);
}

// Scans "-V", "-X_PAGE path", "-Name Value" and bare page paths.
void X_cmdline(int argc, char **argv) {
    info_switch(argc, argv);
    bool page_given = false;
    int i = 1;
    while (i < argc) {
        const char *a = argv[i];
        if (a[0] == '-' && i + 1 < argc) {
            if (strcmp(a, "-V") == 0) {
                X_header();
                i++;
                continue;
            }
            if ((strcmp(a, "-X_PAGE") == 0 || strcmp(a, "--X_PAGE") == 0) &&
                X_checkpage(argv[i + 1]) == 0) {
                page_given = true;
                i += 2;
                continue;
            }
            X_add_value(a[1] == '-' ? a + 2 : a + 1, argv[i + 1]);
            i += 2;
            continue;
        }
        if (a[0] == '-' && page_given) break;
        if (!page_given) page_given = X_checkpage(a) == 0;
        i++;
    }
}
