// The document of the XML benchmark: stations with addresses, ports, options and
// descriptions, as the platform keeps them. The writer tests use it too, so that the
// benchmark's own document is the one checked byte for byte.
#pragma once

#include <velmora/xml/XWriter.h>

#include <cstdio>
#include <string>

namespace velmora {
namespace bench {

inline void appendStation(std::string& d, int i) {
    char buf[1024];
    std::snprintf(buf, sizeof buf,
                  " <station id=\"%d\" name=\"station-%d\" enabled=\"%s\" cfg:zone=\"z%d\">\n"
                  "  <address host=\"10.%d.%d.%d\" port=\"%d\" protocol=\"tcp\"/>\n"
                  "  <timeout unit=\"ms\">%d</timeout>\n"
                  "  <option key=\"retry.count\" value=\"%d\"/>\n"
                  "  <option key=\"log.level\" value=\"warning\"/>\n"
                  "  <description>Station %d &amp; its feed, kept for the "
                  "north hall (line %d).</description>\n"
                  " </station>\n",
                  i, i, i % 3 ? "true" : "false", i % 7, i % 250, (i / 250) % 250, i % 200,
                  8000 + i % 1000, 500 + i % 4500, i % 5, i, i % 40);
    d += buf;
}

// At least `minBytes` of document; `*stations` receives the number of stations.
inline std::string stationDocument(size_t minBytes, int* stations) {
    std::string d =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!-- station settings -->\n"
        "<settings version=\"3\" xmlns:cfg=\"urn:velmora:config\">\n";
    int i = 0;
    for (; d.size() < minBytes; ++i)
        appendStation(d, i);
    d += "</settings>\n";
    if (stations != nullptr) *stations = i;
    return d;
}

// The same stations written by hand with the writer's helpers, in the form the writer
// gives the parsed document (prolog, no comment).
inline void writeStations(XWriter* out, int stations) {
    out->prolog();
    out->w("<settings ")->attr("version", "3")->w(' ');
    out->attr("xmlns:cfg", "urn:velmora:config")->w('>')->nl();
    char host[32];
    for (int i = 0; i < stations; ++i) {
        out->indent(1)->w("<station ")->attrf("id", "%d", 16, i)->w(' ');
        out->attrf("name", "station-%d", 32, i)->w(' ');
        out->attr("enabled", i % 3 ? "true" : "false")->w(' ');
        out->attrf("cfg:zone", "z%d", 16, i % 7)->w('>')->nl();
        std::snprintf(host, sizeof host, "10.%d.%d.%d", i % 250, (i / 250) % 250, i % 200);
        out->indent(2)->w("<address ")->attr("host", host)->w(' ');
        out->attrf("port", "%d", 16, 8000 + i % 1000)->w(' ');
        out->attr("protocol", "tcp")->w("/>")->nl();
        out->indent(2)->w("<timeout ")->attr("unit", "ms")->w('>');
        out->w(500 + i % 4500)->w("</timeout>")->nl();
        out->indent(2)->w("<option ")->attr("key", "retry.count")->w(' ');
        out->attrf("value", "%d", 16, i % 5)->w("/>")->nl();
        out->indent(2)->w("<option ")->attr("key", "log.level")->w(' ');
        out->attr("value", "warning")->w("/>")->nl();
        out->indent(2)->w("<description>")->w("Station ")->w(i)->safe(" & its feed, kept for the ");
        out->safe("north hall (line ")->w(i % 40)->w(").")->w("</description>")->nl();
        out->indent(1)->w("</station>")->nl();
    }
    out->w("</settings>")->nl();
}

}  // namespace bench
}  // namespace velmora
