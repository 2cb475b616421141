// The settings page (GET /, GET /ui/<file>) and the list of endpoints (GET /api).
#pragma once

#include <string>

#include "Exchange.h"

namespace velmorad {

// GET / : the page. GET /ui/<name>: one of its files, 404 for any other name.
void uiFile(Exchange& x, const std::string& path);
// GET /api: what each endpoint does, as a plain HTML list.
void apiIndex(Exchange& x);

}  // namespace velmorad
