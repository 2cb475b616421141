#include "tcpip/StrictXml.h"

#include <cstring>

namespace velmora {

namespace {

class Reader {
public:
    Reader(const char* text, size_t length) : p_(text), start_(text), end_(text + length) {}

    bool fail(const std::string& what) {
        if (why_.empty()) why_ = what + " at byte " + std::to_string(p_ - start_);
        return false;
    }
    const std::string& why() const { return why_; }

    bool document(StrictXml::Node* root) {
        if (end_ - p_ >= 3 && std::memcmp(p_, "\xEF\xBB\xBF", 3) == 0) p_ += 3;
        if (!misc()) return false;
        if (p_ == end_ || *p_ != '<') return fail("a root element is missing");
        int elements = 0;
        if (!element(root, 1, &elements)) return false;
        if (!misc()) return false;
        if (p_ != end_) return fail("only one root element is allowed; more follows");
        return true;
    }

private:
    static bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }
    static bool isNameStart(char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == ':' ||
               (static_cast<unsigned char>(c) >= 0x80);
    }
    static bool isNameChar(char c) {
        return isNameStart(c) || (c >= '0' && c <= '9') || c == '-' || c == '.';
    }

    bool startsWith(const char* s) const {
        size_t n = std::strlen(s);
        return static_cast<size_t>(end_ - p_) >= n && std::memcmp(p_, s, n) == 0;
    }

    void blanks() {
        while (p_ < end_ && isBlank(*p_))
            ++p_;
    }

    // Blanks, comments and processing instructions (the XML declaration among them).
    bool misc() {
        for (;;) {
            blanks();
            if (startsWith("<!--")) {
                const char* close = find("-->", p_ + 4);
                if (close == nullptr) return fail("a comment is not closed");
                // XML keeps "--" out of a comment, and the applying parser ends a comment at
                // the first "--": a comment holding one would be read as markup there.
                const char* dashes = find("--", p_ + 4);
                if (dashes != close || (close > p_ + 4 && close[-1] == '-'))
                    return fail("a comment holds \"--\"");
                p_ = close + 3;
            } else if (startsWith("<?")) {
                const char* close = find("?>", p_ + 2);
                if (close == nullptr) return fail("a processing instruction is not closed");
                p_ = close + 2;
            } else if (startsWith("<!")) {
                return fail("document types and CDATA sections are not accepted");
            } else {
                return true;
            }
        }
    }

    const char* find(const char* what, const char* from) const {
        size_t n = std::strlen(what);
        for (const char* q = from; static_cast<size_t>(end_ - q) >= n; ++q) {
            if (std::memcmp(q, what, n) == 0) return q;
        }
        return nullptr;
    }

    bool name(std::string* out) {
        if (p_ == end_ || !isNameStart(*p_)) return fail("a name is expected");
        const char* from = p_;
        while (p_ < end_ && isNameChar(*p_))
            ++p_;
        out->assign(from, static_cast<size_t>(p_ - from));
        return true;
    }

    static void appendUtf8(std::string* out, unsigned long c) {
        if (c < 0x80) {
            out->push_back(static_cast<char>(c));
        } else if (c < 0x800) {
            out->push_back(static_cast<char>(0xC0 | (c >> 6)));
            out->push_back(static_cast<char>(0x80 | (c & 0x3F)));
        } else if (c < 0x10000) {
            out->push_back(static_cast<char>(0xE0 | (c >> 12)));
            out->push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
            out->push_back(static_cast<char>(0x80 | (c & 0x3F)));
        } else {
            out->push_back(static_cast<char>(0xF0 | (c >> 18)));
            out->push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
            out->push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
            out->push_back(static_cast<char>(0x80 | (c & 0x3F)));
        }
    }

    // One reference after '&', appended to `out` as the character it names.
    bool reference(std::string* out) {
        const char* semicolon = p_;
        while (semicolon < end_ && semicolon - p_ < 12 && *semicolon != ';')
            ++semicolon;
        if (semicolon == end_ || *semicolon != ';') return fail("'&' does not start a reference");
        std::string ref(p_, static_cast<size_t>(semicolon - p_));
        static const char* const named[][2] = {
            {"amp", "&"}, {"lt", "<"}, {"gt", ">"}, {"quot", "\""}, {"apos", "'"}};
        for (const auto& n : named) {
            if (ref == n[0]) {
                out->append(n[1]);
                p_ = semicolon + 1;
                return true;
            }
        }
        if (ref.size() < 2 || ref[0] != '#') return fail("unknown reference &" + ref + ";");
        bool hex = ref[1] == 'x';
        unsigned long c = 0;
        size_t digits = 0;
        for (size_t i = hex ? 2 : 1; i < ref.size(); ++i, ++digits) {
            char d = ref[i];
            int v = d >= '0' && d <= '9'          ? d - '0'
                    : hex && d >= 'a' && d <= 'f' ? d - 'a' + 10
                    : hex && d >= 'A' && d <= 'F' ? d - 'A' + 10
                                                  : -1;
            if (v < 0 || c > 0x10FFFF) return fail("bad character reference &" + ref + ";");
            c = c * (hex ? 16 : 10) + static_cast<unsigned long>(v);
        }
        if (digits == 0 || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF))
            return fail("bad character reference &" + ref + ";");
        appendUtf8(out, c);  // a control character or NUL is the caller's to refuse
        p_ = semicolon + 1;
        return true;
    }

    bool attributeValue(std::string* out) {
        if (p_ == end_ || (*p_ != '"' && *p_ != '\'')) return fail("a quoted value is expected");
        char quote = *p_++;
        while (p_ < end_ && *p_ != quote) {
            if (*p_ == '<') return fail("'<' in an attribute value");
            if (*p_ == '&') {
                ++p_;
                if (!reference(out)) return false;
            } else {
                out->push_back(*p_++);
            }
        }
        if (p_ == end_) return fail("an attribute value is not closed");
        ++p_;
        return true;
    }

    bool element(StrictXml::Node* node, int depth, int* elements) {
        if (depth > StrictXml::kMaxDepth) return fail("elements nested too deeply");
        if (++*elements > StrictXml::kMaxElements) return fail("too many elements");
        ++p_;  // '<'
        if (!name(&node->name)) return false;
        for (;;) {
            bool blank = p_ < end_ && isBlank(*p_);
            blanks();
            if (p_ == end_) return fail("<" + node->name + " is not closed");
            if (*p_ == '/' || *p_ == '>') break;
            if (!blank) return fail("a blank is expected before an attribute");
            std::string attribute, value;
            if (!name(&attribute)) return false;
            blanks();
            if (p_ == end_ || *p_ != '=') return fail("'=' is expected after " + attribute);
            ++p_;
            blanks();
            if (!attributeValue(&value)) return false;
            if (node->get(attribute.c_str()) != nullptr)
                return fail("attribute " + attribute + " appears twice");
            node->attributes.emplace_back(attribute, value);
        }
        if (*p_ == '/') {
            ++p_;
            if (p_ == end_ || *p_ != '>') return fail("'>' is expected after '/'");
            ++p_;
            return true;
        }
        ++p_;  // '>'
        for (;;) {
            if (!misc()) return false;
            if (p_ == end_) return fail("</" + node->name + "> is missing");
            if (*p_ != '<') return fail("text is not expected inside <" + node->name + ">");
            if (startsWith("</")) break;
            node->children.emplace_back();
            if (!element(&node->children.back(), depth + 1, elements)) return false;
        }
        p_ += 2;
        std::string closing;
        if (!name(&closing)) return false;
        if (closing != node->name)
            return fail("</" + closing + "> does not match <" + node->name + ">");
        blanks();
        if (p_ == end_ || *p_ != '>') return fail("'>' is expected after </" + closing);
        ++p_;
        return true;
    }

    const char* p_;
    const char* start_;
    const char* end_;
    std::string why_;
};

}  // namespace

const std::string* StrictXml::Node::get(const char* attribute) const {
    for (const auto& a : attributes) {
        if (a.first == attribute) return &a.second;
    }
    return nullptr;
}

bool StrictXml::parse(const char* text, size_t length, Node* root, std::string* why) {
    *root = Node();
    Reader reader(text != nullptr ? text : "", text != nullptr ? length : 0);
    if (reader.document(root)) return true;
    *why = reader.why();
    return false;
}

}  // namespace velmora
