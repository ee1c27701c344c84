// Tolm entry point: one request (or one shell invocation) per process.
#include <csignal>
#include <cstdlib>
#include <malloc.h>
#include <pthread.h>
#include <sys/resource.h>

#include "diag/diag.h"
#include "form/form.h"
#include "runtime/config.h"
#include "runtime/limits.h"
#include "runtime/runtime.h"
#include "runtime/site.h"
#include "syscmd/process.h"
#include "x.h"

namespace {

// The content type line that opens the HTTP header.
void content_type() {
    fputs(X_safe() ? "Content-Type: text/html; charset=utf-8\r\n" : "Content-Type: text/html\r\n",
          stdout);
    fflush(stdout);
}

// Pages recurse through calls, blocks and includes with 64 KiB line buffers
// in each frame, so the interpreter runs on a stack of its own this size.
constexpr size_t kStack = 256UL << 20;

struct Args {
    int argc;
    char **argv;
};

// Decodes the request or the command line, then runs the page.
[[noreturn]] void run(int argc, char **argv) {
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
    X_seed();
    X_set_cookies();
    if (!shell) X_header();
    X_TRACE("==>  X_action(); \n");
    X_limit_run(shell);
    X_action();
    X_TRACE("==>  EXIT; \n");
    X_exit(0);
}

void *interpreter(void *p) {
    int probe;
    X_stack_base(&probe);
    X_stack_size(static_cast<long>(kStack));
    sigset_t none;
    sigemptyset(&none);
    pthread_sigmask(SIG_SETMASK, &none, nullptr);
    auto *a = static_cast<Args *>(p);
    run(a->argc, a->argv);
}

}  // namespace

int main(int argc, char **argv) {
    Debug = 0;
    Trace = 0;
    // One malloc arena: the interpreter thread needs no arena of its own.
    mallopt(M_ARENA_MAX, 1);
    // Signals go to the interpreter thread only; this one just waits.
    sigset_t all, old;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &old);
    Args args{argc, argv};
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setstacksize(&attr, kStack);
    pthread_t t;
    if (pthread_create(&t, &attr, interpreter, &args) != 0) {
        // No room for a big stack: run on this one, guarded by its limit.
        pthread_sigmask(SIG_SETMASK, &old, nullptr);
        int probe;
        X_stack_base(&probe);
        rlimit rl;
        if (getrlimit(RLIMIT_STACK, &rl) == 0 && rl.rlim_cur != RLIM_INFINITY)
            X_stack_size(static_cast<long>(rl.rlim_cur));
        run(argc, argv);
    }
    pthread_join(t, nullptr);
    return 0;
}
