// The banner comment, the page run and the one way out of the process.
#include <cstdlib>
#include <unistd.h>

#include "db/db.h"
#include "diag/diag.h"
#include "form/form.h"
#include "page/output.h"
#include "page/page.h"
#include "runtime/runtime.h"
#include "runtime/site.h"
#include "session/session.h"
#include "storage/store.h"
#include "x.h"

// Writes the banner comment once; it also ends the HTTP header.
int X_header() {
    static int printed;
    if (printed) return 0;
    printed = 1;
    char banner[128];
    snprintf(banner, sizeof banner, "\r\n\r\n<!-- %s %s -->\n\n", X_VERSION_TEXT,
             "(c) Tolm developers");
    X_head_banner(banner);
    return 0;
}

int X_action() {
    if (!X_PAGE) return -1;
    return X_printfile(X_PAGE, 1);
}

// Ends the run: database, the run's temporary file, output, exit status.
void X_exit(int status) {
    X_TRACE("X_exit( %d );", status);
    X_flush_out();  // collected text does not wait for the database to close
    X_finish();
    X_session_save();  // after the page's connection, on one of its own
    char tmp[4096], pid[24];
    X_decimal(getpid(), pid);
    int n = X_join(tmp, sizeof tmp, {TMP_DIR ? TMP_DIR : "/tmp", "/X.", pid});
    if (n < static_cast<int>(sizeof tmp)) unlink(tmp);  // never a cut path
    if (X_safe()) X_upload_cleanup();  // what the page did not move away
    X_TRACE("X_exit: exit...");
    X_body();
    fflush(stdout);
    exit(status);
}
