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

// A name and its value in one block, the value right after the name's zero: a field
// costs one allocation.
void copyPair(const char* name, size_t nameLength, const char* value, size_t valueLength,
              char** nameOut, char** valueOut) {
    char* block = static_cast<char*>(std::malloc(nameLength + valueLength + 2));
    if (block == nullptr) return;
    std::memcpy(block, name, nameLength);
    block[nameLength] = '\0';
    std::memcpy(block + nameLength + 1, value, valueLength);
    block[nameLength + 1 + valueLength] = '\0';
    *nameOut = block;
    *valueOut = block + nameLength + 1;
}

// Whether `value` lies in the name's block (and goes with it).
bool sharesBlock(const char* name, const char* value) {
    return name != nullptr && value == name + std::strlen(name) + 1;
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
    const char* end = p;
    while (*end != '\0' && !isBlank(*end))
        ++end;
    copyPair(line, static_cast<size_t>(colon - line), p, static_cast<size_t>(end - p), &name_,
             &value_);

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

HeaderField::HeaderField(const char* name, const char* value) {
    if (name != nullptr && value != nullptr) {
        copyPair(name, std::strlen(name), value, std::strlen(value), &name_, &value_);
    } else {
        name_ = copyText(name);
        value_ = copyText(value);
    }
}

HeaderField::~HeaderField() {
    if (!sharesBlock(name_, value_)) std::free(value_);
    std::free(name_);
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
    if (!sharesBlock(name_, value_)) std::free(value_);
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
