// Tolm entry point: one request (or one shell invocation) per process.
#include <cstdlib>

#include "diag/diag.h"
#include "fcgi/fcgi.h"
#include "form/form.h"
#include "runtime/config.h"
#include "runtime/limits.h"
#include "runtime/runtime.h"
#include "runtime/site.h"
#include "session/session.h"
#include "syscmd/process.h"
#include "x.h"
#include "page/output.h"

namespace {

// The content type line that opens the HTTP header, held with the rest of
// the header until the body starts.
void content_type() {
    X_head_begin(X_safe() ? "Content-Type: text/html; charset=utf-8\r\n"
                          : "Content-Type: text/html\r\n");
}

// Decodes the request or the command line, then runs the page.
void run(int argc, char **argv) {
    X_start();
    X_trace("==> Tolm: started...\n");
    X_debug("==> Tolm: started...\n");
    X_site();  // limits and profile hold before the request is read
    int shell = 0;
    switch (GetMethod()) {
    case 1:
        // A body over the site's limit is refused unread (after X_values,
        // so that the site's error page shows it).
        if (X_limit_body() == 0 &&
            (CheckEnctypeMethod() ? E_POST_parser(ent) : POST_parser(ent)) != 0)
            ERRMSG_text(POST_errmsg);
        X_limit_form(ent);
        if (X_safe()) GET_path(ent, "X_PAGE");  // the page of the URL, as for GET
        content_type();
        break;
    case 2:
        if (GET_parser(ent, "X_PAGE") != 0) ERRMSG_text(POST_errmsg);
        GET_path(ent, "X_PAGE");
        X_limit_form(ent);
        content_type();
        break;
    default:
        shell = 1;
        X_TRACE("Not HTTP Method, going SHELL..");
        // Under a web server the command line may come from the query
        // string: it is never read there.
        if (argc >= 2 && !getenv("GATEWAY_INTERFACE")) X_cmdline(argc, argv);
        break;
    }
    X_TRACE("==>  X_values(); \n");
    X_values(argv[0], shell);
    X_limit_refusal();
    X_seed_later();
    if (x_SITE.session) X_session_start();
    X_set_cookies();
    if (!shell) X_header();
    X_TRACE("==>  X_action(); \n");
    X_limit_run(shell);
    X_action();
    X_TRACE("==>  EXIT; \n");
    X_exit(0);
}

}  // namespace

int main(int argc, char **argv) {
    // Under FastCGI only each request's page process gets past this line; it
    // runs as a CGI program started without arguments.
    if (X_fastcgi()) argc = 1;
    Debug = 0;
    Trace = 0;
    X_run_on_stack(run, argc, argv);
}
