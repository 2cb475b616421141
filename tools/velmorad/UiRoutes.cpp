#include "UiRoutes.h"

#include <cstring>
#include <string>

#include "UiFiles.h"

namespace velmorad {

namespace {

// Every answer of the page's own: nothing loads from another host, no other site may frame
// it (a framed page could be clicked through by the framing one), and a type is never
// guessed from the bytes.
void addPageFields(Exchange& x) {
    x.fields.emplace_back("Content-Security-Policy", "default-src 'self'");
    x.fields.emplace_back("X-Frame-Options", "DENY");
    x.fields.emplace_back("X-Content-Type-Options", "nosniff");
    x.fields.emplace_back("Referrer-Policy", "no-referrer");
    x.fields.emplace_back("Cache-Control", "no-cache");
}

const UiFile* find(const std::string& path) {
    for (size_t i = 0; i < kUiFileCount; ++i)
        if (path == kUiFiles[i].path) return &kUiFiles[i];
    return nullptr;
}

}  // namespace

void uiFile(Exchange& x, const std::string& path) {
    const UiFile* file = find(path == "/" ? "/ui/index.html" : path);
    if (file == nullptr) {
        x.replyError(404, "no such file of the settings page");
        return;
    }
    addPageFields(x);
    x.reply(200, file->type, std::string(reinterpret_cast<const char*>(file->data), file->size));
}

void apiIndex(Exchange& x) {
    addPageFields(x);
    x.reply(200, "text/html; charset=utf-8",
            "<!DOCTYPE html>\n<html lang=\"en\">\n<head><meta charset=\"utf-8\">"
            "<title>velmorad: endpoints</title></head>\n<body>\n"
            "<h1>velmorad endpoints</h1>\n<p><a href=\"/\">The settings page</a></p>\n<ul>\n"
            "<li><a href=\"/status\">GET /status</a>: version, uptime, requests, connections</li>\n"
            "<li>GET /ping?host=H&amp;timeout=S: one ICMP echo</li>\n"
            "<li>GET /ping-all?hosts=H1,H2: a streamed log, one entry per host</li>\n"
            "<li><a href=\"/levels\">GET /levels</a>: log levels by name; "
            "POST /levels with name=N&amp;level=L (query or form body) changes one</li>\n"
            "<li><a href=\"/network\">GET /network</a>: the host's TCP/IP settings; "
            "POST /network applies a document when network.apply=true, "
            "POST /network?confirmWithin=S reverts it after S seconds unless "
            "POST /network/confirm?id=ID arrives</li>\n"
            "<li><a href=\"/network/pending\">GET /network/pending</a>: the change waiting for "
            "its confirmation; POST /network/revert?id=ID takes it back at once</li>\n"
            "<li>GET /write-filter?drive=C: the write filter's overlay state, boot command and "
            "RAM use; POST /write-filter?drive=C&amp;command=N sets the boot command</li>\n"
            "</ul>\n<p>Every POST needs the header <code>Authorization: Bearer TOKEN</code>; "
            "<code>velmorad token</code> prints the token.</p>\n</body>\n</html>\n");
}

}  // namespace velmorad
