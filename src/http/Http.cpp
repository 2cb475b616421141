#include <velmora/http/Http.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace velmora {

namespace {

// One row per hundred; a status is looked up by status / 100 and status % 100 once it
// has passed the range test of its row.
const char* const kRow1[] = {"Continue", "Switching Protocols"};
const char* const kRow2[] = {
    "OK",         "Created",       "Accepted",       "Non-Authoritative Information",
    "No Content", "Reset Content", "Partial Content"};
const char* const kRow3[] = {"Multiple Choices", "Moved Permanently", "Moved Temporarily",
                             "See Other",        "Not Modified",      "Use Proxy"};
const char* const kRow4[] = {"Bad Request",
                             "Unauthorized",
                             "Payment Required",
                             "Forbidden",
                             "Not Found",
                             "Method Not Allowed",
                             "Not Acceptable",
                             "Proxy Authentication Required",
                             "Request Timeout",
                             "Conflict",
                             "Gone",
                             "Length Required",
                             "Precondition Failed",
                             "Request Entity Too Large",
                             "Request URI Too Large",
                             "Unsupported Media Type"};
const char* const kRow5[] = {"Internal Server Error", "Not Implemented",
                             "Bad Gateway",           "Service Unavailable",
                             "Gateway Timeout",       "HTTP Version Not Supported"};

struct Row {
    const char* const* phrases;
    int count;
};
const Row kRows[] = {{nullptr, 0}, {kRow1, 2}, {kRow2, 7}, {kRow3, 6}, {kRow4, 16}, {kRow5, 6}};

const char* const kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
const char* const kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                               "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

int findName(const char* text, const char* const* names, int count) {
    for (int i = 0; i < count; ++i) {
        if (std::strncmp(text, names[i], 3) == 0) return i;
    }
    return -1;
}

// Reads exactly `digits` decimal digits; -1 when any is missing.
int readNumber(const char* text, int digits) {
    int value = 0;
    for (int i = 0; i < digits; ++i) {
        if (text[i] < '0' || text[i] > '9') return -1;
        value = value * 10 + (text[i] - '0');
    }
    return value;
}

bool isLeapYear(int year) {
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

int dayOfYear(int year, int month, int day) {
    static const int kBefore[] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
    return kBefore[month] + day - 1 + (month > 1 && isLeapYear(year) ? 1 : 0);
}

}  // namespace

const char* Http::getReasonPhrase(int status) {
    if (status >= 100 && status < 600) {
        const Row& row = kRows[status / 100];
        if (status % 100 < row.count) return row.phrases[status % 100];
    }
    return "Error";
}

int Http::formatTime(const struct tm* time, const char* zone, char* out, int size) {
    if (time == nullptr || out == nullptr || size < 29) return -1;
    if (time->tm_wday < 0 || time->tm_wday > 6 || time->tm_mon < 0 || time->tm_mon > 11) return -1;
    const char* z = zone == nullptr ? "GMT" : (std::strlen(zone) > 3 ? "???" : zone);
    int n = std::snprintf(out, static_cast<size_t>(size), "%s, %02d %s %04d %02d:%02d:%02d %s",
                          kDays[time->tm_wday], time->tm_mday, kMonths[time->tm_mon],
                          time->tm_year + 1900, time->tm_hour, time->tm_min, time->tm_sec, z);
    // Out-of-range days or years make a longer text; never hand back a cut one.
    if (n < 0 || n >= size) {
        out[0] = '\0';
        return -1;
    }
    return 0;
}

int Http::parseTime(const char* text, struct tm* out) {
    if (text == nullptr || out == nullptr || std::strlen(text) < 26) return -1;
    // "Sun, 06 Nov 1994 08:49:37 GMT": fixed positions up to the zone.
    int wday = findName(text, kDays, 7);
    int mday = readNumber(text + 5, 2);
    int mon = findName(text + 8, kMonths, 12);
    int year = readNumber(text + 12, 4);
    int hour = readNumber(text + 17, 2);
    int min = readNumber(text + 20, 2);
    int sec = readNumber(text + 23, 2);
    if (wday < 0 || mon < 0 || mday < 1 || mday > 31 || year < 0 || hour < 0 || hour > 23 ||
        min < 0 || min > 59 || sec < 0 || sec > 60) {
        return -1;
    }
    if (std::strncmp(text + 3, ", ", 2) != 0 || text[7] != ' ' || text[11] != ' ' ||
        text[16] != ' ' || text[19] != ':' || text[22] != ':' || text[25] != ' ') {
        return -1;
    }
    if (std::strlen(text + 26) > 3) return -1;
    std::memset(out, 0, sizeof *out);
    out->tm_wday = wday;
    out->tm_mday = mday;
    out->tm_mon = mon;
    out->tm_year = year - 1900;
    out->tm_hour = hour;
    out->tm_min = min;
    out->tm_sec = sec;
    out->tm_yday = dayOfYear(year, mon, mday);
    return 0;
}

char* Http::decodeUri(const char* source, char* out, int size) {
    if (out == nullptr || size <= 0) return out;
    out[0] = '\0';
    if (source == nullptr) return out;
    int n = 0;
    for (const char* p = source; *p != '\0'; ++p) {
        char c = *p;
        if (c == '+') {
            c = ' ';
        } else if (c == '%') {
            if (p[1] == '\0' || p[2] == '\0') {
                out[0] = '\0';
                return out;
            }
            // Kept: no test for -1, so a lower-case digit still takes part in the sum.
            c = static_cast<char>(16 * fromHex(p[1]) + fromHex(p[2]));
            p += 2;
        }
        if (n >= size - 1) {
            out[0] = '\0';
            return out;
        }
        out[n++] = c;
    }
    out[n] = '\0';
    return out;
}

int Http::fromHex(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

char* Http::getServletName(const char* path, char* out, int size) {
    if (out == nullptr || size <= 0) return out;
    std::memset(out, 0, static_cast<size_t>(size));
    if (path == nullptr || path[0] != '/') return out;
    const char* start = path + 1;
    size_t length = std::strcspn(start, "/");
    if (length > static_cast<size_t>(size - 1)) length = static_cast<size_t>(size - 1);
    std::memcpy(out, start, length);
    return out;
}

}  // namespace velmora
