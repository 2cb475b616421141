// One header line of an HTTP message: its name, its value (the first word after the
// colon) and the further words as attributes, in the order met.
//
//   velmora::HeaderField f("Content-Type: text/html; charset=utf-8");
//   f.getName();   // "Content-Type"
//   f.getValue();  // "text/html;"  (up to the blank)
//   char v[16];
//   f.getAttributes()->get("charset", v, sizeof v, "");  // "utf-8"
#pragma once

#include <velmora/Export.h>
#include <velmora/collections/KeyedList.h>

namespace velmora {

class SocketOutput;

class VELMORA_API HeaderField {
public:
    // Parses a header line. A line without ':' or with nothing after the colon gives a
    // field without name and value, which messages drop.
    explicit HeaderField(const char* line);
    HeaderField(const char* name, const char* value);
    ~HeaderField();

    // Adds "key=value" as a pair; any other non-empty text (no '=', or one at its end) is
    // added whole under the current number of attributes ("0", "1", ...).
    void addAttribute(const char* text);
    void setValue(const char* value);
    // "name: value", the attributes (" k=v", then ", k=v"; a key alone when its value is
    // empty; keys cut at 63 and values at 1023 characters) and CR LF. Always true.
    bool write(SocketOutput* out);

    const char* getName() const { return name_; }
    const char* getValue() const { return value_; }
    KeyedList* getAttributes() { return &attributes_; }
    HeaderField* getNext() const { return next_; }

private:
    friend class HttpMessage;
    friend class HttpResponse;
    HeaderField(const HeaderField&) = delete;
    HeaderField& operator=(const HeaderField&) = delete;

    char* name_ = nullptr;
    char* value_ = nullptr;
    KeyedList attributes_;
    HeaderField* next_ = nullptr;
};

}  // namespace velmora
