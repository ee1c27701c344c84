// The files that multipart decoding made for this run, so that the request
// values can tell a file field from a text field and the end of the run can
// remove what the page left behind.
#include <sys/stat.h>
#include <unistd.h>
#include <cstdlib>

#include "form/form.h"

namespace {

// One uploaded file: its path (the entry's value) and the file it named
// when it was made.
struct Upload {
    const char *path;
    bool made;  // the file was there when recorded
    dev_t dev;
    ino_t ino;
};

Upload *uploads;  // grows by doubling; never freed
int count, room;
pid_t owner;      // the process that decoded the request

}  // namespace

int X_upload_add(const char *path) {
    if (!path) return -1;
    struct stat st;
    bool made = lstat(path, &st) == 0;
    owner = getpid();
    if (count == room) {
        int n = room ? 2 * room : 16;
        auto *grown = static_cast<Upload *>(realloc(uploads, n * sizeof *uploads));
        if (!grown) return -1;
        uploads = grown;
        room = n;
    }
    uploads[count++] = Upload{path, made, made ? st.st_dev : 0, made ? st.st_ino : 0};
    return made ? 0 : -1;
}

int X_upload_is(const char *val) {
    for (int i = 0; i < count; ++i)
        if (uploads[i].path == val) return 1;
    return 0;
}

int X_upload_cleanup() {
    int removed = 0;
    if (owner != getpid()) return 0;  // a forked child leaves them to its parent
    for (int i = 0; i < count; ++i) {
        struct stat st;
        // Moved or renamed by the page: the path no longer names that file.
        if (uploads[i].made && lstat(uploads[i].path, &st) == 0 && st.st_dev == uploads[i].dev &&
            st.st_ino == uploads[i].ino && unlink(uploads[i].path) == 0)
            ++removed;
    }
    count = 0;
    return removed;
}
