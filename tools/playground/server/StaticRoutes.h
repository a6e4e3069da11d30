// The page's files and the list of bundled sample photos.
#pragma once

#include <httplib.h>

#include "ServerConfig.h"

//   GET /api/samples   [{"name", "width", "height", "box": [x1, y1, x2, y2]}]
//   GET /, GET /FILE   the files of the web folder; a path that would leave
//                      it is refused with 400
void addStaticRoutes(httplib::Server& server, const ServerConfig& config);

// The file of the bundled sample `name`; empty when there is none so named.
std::string sampleBytes(const ServerConfig& config, const std::string& name);
