// The static part of the HTTP layer: reason phrases, the date form of header fields,
// URI decoding, the first path segment of a request, hexadecimal digits and the table of
// MIME types. HttpMessage derives from it, so requests and responses reach these directly.
//
//   char date[32];
//   velmora::Http::formatTime(&utc, nullptr, date, sizeof date);
//   // date: "Sun, 06 Nov 1994 08:49:37 GMT"
//   char path[256];
//   velmora::Http::decodeUri("/a+b%41", path, sizeof path);  // "/a bA"
#pragma once

#include <ctime>

#include <velmora/Export.h>

namespace velmora {

class Map;

class VELMORA_API Http {
public:
    // The phrase of a status code; "Error" for any code outside the fixed table.
    static const char* getReasonPhrase(int status);

    // Writes the RFC 1123 form "Sun, 06 Nov 1994 08:49:37 GMT" (29 characters with a
    // three-letter zone) and returns 0. The zone is "GMT" when null, "???" when longer
    // than three characters. -1 (nothing written) when size is below 29 or the weekday or
    // month is out of range.
    static int formatTime(const struct tm* time, const char* zone, char* out, int size);
    // Reads back exactly the form formatTime writes (any zone of up to three characters,
    // which is not interpreted) into `out`; 0 on success, -1 for any other text or for
    // fields out of range.
    static int parseTime(const char* text, struct tm* out);

    // Decodes '+' to a blank and "%XY" to a byte. Only upper-case hex digits count: a
    // lower-case digit is read as -1 and used in the sum all the same (kept, so "%2f" gives
    // the byte 31). The result is empty when a '%' has fewer than two characters after it
    // or the decoded text would not fit in `size` bytes with its terminator. Returns out.
    static char* decodeUri(const char* source, char* out, int size);
    // 0-9 for '0'-'9', 10-15 for 'A'-'F', -1 for anything else (lower case included).
    static int fromHex(char c);
    // The first segment of a path that starts with '/' ("/status/x" gives "status"), cut
    // to size - 1 characters; empty otherwise. `out` is zero-filled first. Returns out.
    static char* getServletName(const char* path, char* out, int size);
    // MIME types by file extension. loadMimeTable reads a properties file of lines
    // "extension=type" (for example "html=text/html"); false when it cannot be read. The
    // table replaces the current one. setMimeTable takes ownership of the map.
    static bool loadMimeTable(const char* file);
    static void setMimeTable(Map* table);
    static void addMimeType(const char* extension, const char* type);
    // The type for the extension of `name` (the text after its last '.', matched without
    // regard to case), else the default type; copied into out, cut to size - 1 characters.
    // Returns out.
    static char* getMimeType(const char* name, char* out, int size);
    static void setDefaultMimeType(const char* type);
    // "application/octet-stream" unless set otherwise.
    static const char* getDefaultMimeType();
    // Frees the MIME table and the default type.
    static void unload();
};

}  // namespace velmora
