#include <velmora/http/HttpMessage.h>

#include <velmora/net/SocketInput.h>
#include <velmora/net/SocketOutput.h>

#include <charconv>
#include <cstdlib>
#include <cstring>

namespace velmora {

namespace {

bool equalsIgnoreCase(const char* a, const char* b) {
    if (a == nullptr || b == nullptr) return false;
    for (; *a != '\0' && *b != '\0'; ++a, ++b) {
        char x = (*a >= 'A' && *a <= 'Z') ? static_cast<char>(*a + 32) : *a;
        char y = (*b >= 'A' && *b <= 'Z') ? static_cast<char>(*b + 32) : *b;
        if (x != y) return false;
    }
    return *a == *b;
}

HeaderField* intField(const char* name, int value) {
    char text[16];
    *std::to_chars(text, text + sizeof text - 1, value).ptr = '\0';
    return new HeaderField(name, text);
}

HeaderField* timeField(const char* name, const struct tm* time) {
    char text[40] = "";
    Http::formatTime(time, nullptr, text, sizeof text);
    return new HeaderField(name, text);
}

// Serves a block of memory as the input of a socket; notes when a read went past its end.
class MemoryInput : public SocketInput {
public:
    MemoryInput(const char* data, int length)
        : SocketInput(nullptr, -1), data_(data), length_(length) {}
    bool ranOut() const { return ranOut_; }
    int consumed() const { return position_ - buffered(); }

protected:
    bool fillBuffer() override {
        if (position_ >= length_) {
            ranOut_ = true;
            return false;
        }
        position_ += acceptBlock(data_ + position_, length_ - position_);
        return true;
    }

private:
    const char* data_;
    int length_;
    int position_ = 0;
    bool ranOut_ = false;
};

}  // namespace

HttpMessage::HttpMessage(SocketInput* input, SocketOutput* output)
    : input_(input), output_(output) {}

HttpMessage::~HttpMessage() {
    deleteFields();
    std::free(version_);
}

void HttpMessage::deleteFields() {
    while (first_ != nullptr) {
        HeaderField* next = first_->next_;
        delete first_;
        first_ = next;
    }
    last_ = nullptr;
}

int HttpMessage::parse(const char* data, int length) {
    deleteFields();
    knownLength_ = false;
    if (data == nullptr || length < 0) return -1;
    MemoryInput in(data, length);
    if (read(&in)) return in.consumed();
    return in.ranOut() ? 0 : -1;
}

bool HttpMessage::read(SocketInput* in) {
    if (in == nullptr || !readIntro(in)) return false;
    for (;;) {
        // The room starts at 65 and doubles up to 4096, so a line of 2080 characters or
        // more fails.
        char* line = in->readString(64, 4096, '\r');
        if (line == nullptr) return false;
        char lf = 0;
        if (!in->readByte(&lf) || lf != '\n') {
            std::free(line);
            return false;
        }
        if (line[0] == '\0') {
            std::free(line);
            return true;
        }
        HeaderField* field = new HeaderField(line);
        std::free(line);
        if (field->getName() != nullptr) {
            addField(field);
        } else {
            delete field;
        }
    }
}

bool HttpMessage::write(SocketOutput* out) {
    if (out == nullptr) return false;
    writeIntro(out);
    for (HeaderField* f = first_; f != nullptr; f = f->next_)
        f->write(out);
    writeExtraHeaderFields(out);
    out->writeString("\r\n");
    return out->flush();
}

void HttpMessage::commit() {
    if (!committed_) {
        committed_ = true;
        doCommit();
    }
    if (output_ != nullptr) output_->flush();
}

void HttpMessage::reset() {
    deleteFields();
    knownLength_ = false;
    onReset();
    committed_ = false;
}

void HttpMessage::addField(HeaderField* field) {
    if (field == nullptr) return;
    if (committed_) reset();
    field->next_ = nullptr;
    if (last_ != nullptr) {
        last_->next_ = field;
    } else {
        first_ = field;
    }
    last_ = field;
    if (equalsIgnoreCase(field->getName(), "Content-Length")) knownLength_ = true;
}

void HttpMessage::addField(const char* name, const char* value) {
    addField(new HeaderField(name, value));
}

void HttpMessage::addFieldInt(const char* name, int value) {
    addField(intField(name, value));
}

void HttpMessage::addFieldBoolean(const char* name, bool value) {
    addField(name, value ? "TRUE" : "FALSE");
}

void HttpMessage::addFieldTime(const char* name, const struct tm* time) {
    addField(timeField(name, time));
}

void HttpMessage::setField(HeaderField* field) {
    if (field == nullptr) return;
    if (committed_) reset();
    HeaderField* existing = getFieldInstance(field->getName());
    if (existing == nullptr) {
        addField(field);
        return;
    }
    existing->setValue(field->getValue());
    delete field;
}

void HttpMessage::setField(const char* name, const char* value) {
    setField(new HeaderField(name, value));
}

void HttpMessage::setFieldInt(const char* name, int value) {
    setField(intField(name, value));
}

void HttpMessage::setFieldBoolean(const char* name, bool value) {
    setField(name, value ? "TRUE" : "FALSE");
}

void HttpMessage::setFieldTime(const char* name, const struct tm* time) {
    setField(timeField(name, time));
}

HeaderField* HttpMessage::getFieldInstance(const char* name) {
    if (name == nullptr) return nullptr;
    for (HeaderField* f = first_; f != nullptr; f = f->next_) {
        if (f->getName() != nullptr && std::strcmp(f->getName(), name) == 0) return f;
    }
    return nullptr;
}

const char* HttpMessage::getField(const char* name) {
    for (HeaderField* f = first_; f != nullptr; f = f->next_) {
        if (equalsIgnoreCase(f->getName(), name)) return f->getValue();
    }
    return nullptr;
}

int HttpMessage::getFieldInt(const char* name, int def) {
    const char* text = getField(name);
    if (text == nullptr) return def;
    int value = std::atoi(text);
    return (value == 0 && text[0] != '0') ? def : value;
}

int HttpMessage::getFieldCount() const {
    int count = 0;
    for (HeaderField* f = first_; f != nullptr; f = f->next_)
        ++count;
    return count;
}

HttpMessage::BodyLength HttpMessage::getBodyLength(int64_t limit, int64_t* length) {
    *length = 0;
    const char* first = nullptr;  // the digits of the first length, leading zeros skipped
    bool tooLarge = false;
    int64_t value = 0;
    for (HeaderField* f = first_; f != nullptr; f = f->next_) {
        if (!equalsIgnoreCase(f->getName(), "Content-Length")) continue;
        const char* text = f->getValue();
        if (text == nullptr || *text == '\0' || f->getAttributes()->getCount() != 0)
            return kBadLength;
        for (const char* c = text; *c != '\0'; ++c) {
            if (*c < '0' || *c > '9') return kBadLength;
        }
        while (text[0] == '0' && text[1] != '\0')
            ++text;
        if (first != nullptr) {
            if (std::strcmp(first, text) != 0) return kBadLength;
            continue;
        }
        first = text;
        for (const char* c = text; *c != '\0' && !tooLarge; ++c) {
            int digit = *c - '0';
            if (limit - digit < 0 || value > (limit - digit) / 10) {
                tooLarge = true;
            } else {
                value = value * 10 + digit;
            }
        }
    }
    bool coded = getField("Transfer-Encoding") != nullptr;
    if (first == nullptr) return coded ? kTransferCoded : kNoBody;
    if (coded) return kBadLength;
    if (tooLarge) return kTooLarge;
    *length = value;
    return kLength;
}

bool HttpMessage::getFieldBoolean(const char* name, bool def) {
    const char* text = getField(name);
    if (equalsIgnoreCase(text, "true")) return true;
    if (equalsIgnoreCase(text, "false")) return false;
    return def;
}

int HttpMessage::getFieldTime(const char* name, struct tm* out) {
    const char* text = getField(name);
    return text != nullptr ? Http::parseTime(text, out) : -1;
}

bool HttpMessage::shouldClose() {
    if (isKnownLength()) return equalsIgnoreCase(getField("Connection"), "close");
    setField("Connection", "close");
    return true;
}

void HttpMessage::setVersion(const char* version) {
    std::free(version_);
    version_ = nullptr;
    if (version != nullptr) {
        size_t n = std::strlen(version) + 1;
        version_ = static_cast<char*>(std::malloc(n));
        if (version_ != nullptr) std::memcpy(version_, version, n);
    }
    major_ = -1;
    minor_ = -1;
}

int HttpMessage::getMajorVersion() {
    if (major_ < 0 && version_ != nullptr) parseVersion(version_, &major_, &minor_);
    return major_;
}

int HttpMessage::getMinorVersion() {
    if (minor_ < 0 && version_ != nullptr) parseVersion(version_, &major_, &minor_);
    return minor_;
}

void HttpMessage::parseVersion(const char* text, int* major, int* minor) {
    *major = 0;
    *minor = 0;
    const char* slash = std::strchr(text, '/');
    if (slash == nullptr) return;
    const char* dot = std::strchr(slash + 1, '.');
    size_t digits = dot != nullptr ? static_cast<size_t>(dot - slash - 1) : std::strlen(slash + 1);
    if (digits > 3) return;
    char number[4] = "";
    std::memcpy(number, slash + 1, digits);
    *major = std::atoi(number);
    if (dot != nullptr) *minor = std::atoi(dot + 1);
}

}  // namespace velmora
