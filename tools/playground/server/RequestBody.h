// A request's body, read only as far as the route allows. httplib's own
// limit reads an announced body over it to the end before it answers, and
// does not count chunked bodies at all; here an announced length over the
// limit is refused before a byte is read, and a chunked body as soon as it
// passes the limit.
#pragma once

#include <httplib.h>

#include <optional>
#include <string>

// The body, or empty after answering 413 (`what` names it: "The photo")
// or 400 (it broke off).
std::optional<std::string> readBody(const httplib::Request& req, httplib::Response& res,
                                    const httplib::ContentReader& reader, size_t limit, const std::string& what);

// "128 MB", "900 KB".
std::string sizeText(size_t bytes);
