// The settings page's files (tools/velmorad/ui), embedded into the daemon at build time by
// EmbedUi.cmake. Each is served at its path below /ui/; the page itself also at /.
#pragma once

#include <cstddef>

namespace velmorad {

struct UiFile {
    const char* path;  // "/ui/app.js"
    const char* type;  // the Content-Type it is served with
    const unsigned char* data;
    size_t size;
};

extern const UiFile kUiFiles[];
extern const size_t kUiFileCount;

}  // namespace velmorad
