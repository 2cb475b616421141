#include <velmora/http/HeaderField.h>

#include <velmora/net/SocketOutput.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace velmora {

namespace {

bool isBlank(char c) {
    return c == ' ' || c == '\t';
}

char* copyText(const char* s, size_t n) {
    char* out = static_cast<char*>(std::malloc(n + 1));
    if (out != nullptr) {
        std::memcpy(out, s, n);
        out[n] = '\0';
    }
    return out;
}

char* copyText(const char* s) {
    return s != nullptr ? copyText(s, std::strlen(s)) : nullptr;
}

}  // namespace

HeaderField::HeaderField(const char* line) {
    if (line == nullptr) return;
    const char* colon = std::strchr(line, ':');
    if (colon == nullptr) return;
    const char* p = colon + 1;
    while (isBlank(*p))
        ++p;
    if (*p == '\0') return;
    name_ = copyText(line, static_cast<size_t>(colon - line));
    const char* end = p;
    while (*end != '\0' && !isBlank(*end))
        ++end;
    value_ = copyText(p, static_cast<size_t>(end - p));

    // The rest splits at runs of blanks and commas, except inside double quotes, which
    // stay part of the attribute.
    std::string piece;
    bool quoted = false;
    for (p = end; *p != '\0'; ++p) {
        char c = *p;
        if (c == '"') quoted = !quoted;
        if (!quoted && (isBlank(c) || c == ',')) {
            addAttribute(piece.c_str());
            piece.clear();
        } else {
            piece += c;
        }
    }
    addAttribute(piece.c_str());
}

HeaderField::HeaderField(const char* name, const char* value)
    : name_(copyText(name)), value_(copyText(value)) {}

HeaderField::~HeaderField() {
    std::free(name_);
    std::free(value_);
}

void HeaderField::addAttribute(const char* text) {
    if (text == nullptr || text[0] == '\0') return;
    const char* eq = std::strchr(text, '=');
    size_t length = std::strlen(text);
    if (eq != nullptr && text[length - 1] != '=') {
        std::string key(text, static_cast<size_t>(eq - text));
        attributes_.add(key.c_str(), eq + 1);
    } else {
        char key[16];
        std::snprintf(key, sizeof key, "%d", attributes_.getCount());
        attributes_.add(key, text);
    }
}

void HeaderField::setValue(const char* value) {
    char* copy = copyText(value);
    std::free(value_);
    value_ = copy;
}

bool HeaderField::write(SocketOutput* out) {
    if (out == nullptr) return true;
    out->writeString(name_ != nullptr ? name_ : "");
    out->writeString(": ");
    out->writeString(value_ != nullptr ? value_ : "");
    char key[65];
    char value[1025];
    for (int i = 0; i < attributes_.getCount(); ++i) {
        std::memset(key, 0, sizeof key);
        std::memset(value, 0, sizeof value);
        attributes_.getKey(i, key, 64);
        attributes_.getAtIndex(i, value, 1024);
        out->writeString(i == 0 ? " " : ", ");
        out->writeString(key);
        if (value[0] != '\0') {
            out->writeByte('=');
            out->writeString(value);
        }
    }
    out->writeString("\r\n");
    return true;
}

}  // namespace velmora
