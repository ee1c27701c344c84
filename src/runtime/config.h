// Site configuration and request values: x.config, fixed run values, form
// fields into the store, the page and error page, cookie header lines.
#pragma once

int X_values(const char *prog, int shell);
int X_check_name(const char *root, const char *var);
int X_default_names(const char *root);
int X_set_cookies();
// The server key of this request, as x.config lines name servers.
void X_server_key(char *key, int size);
