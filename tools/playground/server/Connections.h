// How the server takes its connections, so that no client, slow or
// abusive, can hold up the others: one server per port (httplib would let a
// second one share it and take half its requests), a thread for each of
// many connections at once (a session busy with a long edit holds only its
// own), clients that go silent mid-request dropped, and one request per
// connection, so a body a route refused unread is never taken for the next
// request.
#pragma once

#include <httplib.h>

void configureConnections(httplib::Server& server);
