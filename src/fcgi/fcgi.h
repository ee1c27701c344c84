// FastCGI front: serves requests from a listening socket, one fresh page
// process per request, each running the CGI path unchanged.
#pragma once

// Called first thing in main. When standard input is a listening socket, or
// TOLM_FASTCGI_LISTEN names an address ("127.0.0.1:9000", "[::1]:9000" or a
// Unix socket path), this process becomes the FastCGI server and never
// returns, except in the page process of each request: there it returns 1
// with the request's parameters in the environment, the body on standard
// input and standard output bound for the web server. Otherwise it returns 0
// at once and nothing has changed.
//
// TOLM_FASTCGI_WORKERS sets the pool size (default: twice the number of
// cores); TOLM_FASTCGI_TIMEOUT the seconds a request may take before its
// page process is killed (default 120); TOLM_FASTCGI_REQUESTS the requests
// a worker relays before the parent replaces it (default 0: no limit).
int X_fastcgi();
