// Which requests the server answers at all. Only this machine can connect,
// but every page open in a browser on it can send requests here. So the
// Host must name this server (a page elsewhere that renames its own host to
// 127.0.0.1 still sends its own name), and the API answers only the
// playground's own page: a request a browser marks as coming from another
// origin (Origin, Sec-Fetch-Site), another local server's page included,
// gets 403, and cannot start sessions, read photos or take up the places.
// Programs that send neither header (the tests, curl) are let through.
#pragma once

#include <httplib.h>

void guardRequests(httplib::Server& server, const std::string& host, int port);
