// What requests and responses share: the header list, reading it from a socket input and
// writing it to a socket output, commit and reset, and the HTTP version.
//
// Names are matched two ways, on purpose: getField and the typed getters ignore case,
// getFieldInstance and so every setField compare exactly. Setting "content-length" on a
// message holding "Content-Length" therefore appends a second field.
//
//   response.setFieldInt("Content-Length", 5);
//   response.commit();  // head written and flushed
#pragma once

#include <cstdint>
#include <ctime>

#include <velmora/http/HeaderField.h>
#include <velmora/http/Http.h>

namespace velmora {

class SocketInput;
class SocketOutput;

class VELMORA_API HttpMessage : public Http {
public:
    HttpMessage(SocketInput* input, SocketOutput* output);
    virtual ~HttpMessage();

    SocketInput* getInput() const { return input_; }
    SocketOutput* getOutput() const { return output_; }

    // The intro line, then header lines up to the empty line. False on a failed read, a
    // line of 2080 characters or more, or a CR not followed by LF; the fields read so far
    // stay. Lines without a name are dropped; continuation lines are not joined.
    bool read(SocketInput* in);
    // The intro line, every field, the extra fields, an empty line; then a flush.
    bool write(SocketOutput* out);
    // Marks the message committed (once) and writes it as the kind of message decides;
    // flushes the output on every call.
    void commit();
    // Empties the header list and clears the committed and known-length states.
    void reset();
    bool isCommitted() const { return committed_; }

    // Append, even when a field of that name exists; the message owns the field. On a
    // committed message these (and the setters) reset it first.
    void addField(HeaderField* field);
    void addField(const char* name, const char* value);
    void addFieldInt(const char* name, int value);
    void addFieldBoolean(const char* name, bool value);  // "TRUE" or "FALSE"
    void addFieldTime(const char* name, const struct tm* time);
    // Replace the value of the field of exactly that name, else append.
    void setField(HeaderField* field);
    void setField(const char* name, const char* value);
    void setFieldInt(const char* name, int value);
    void setFieldBoolean(const char* name, bool value);
    void setFieldTime(const char* name, const struct tm* time);

    HeaderField* getFieldInstance(const char* name);  // exact name
    const char* getField(const char* name);           // any case; null when absent
    // atoi of the value; `def` when absent or when it reads 0 without starting with '0'.
    int getFieldInt(const char* name, int def);
    // "true" / "false" in any case, else `def`.
    bool getFieldBoolean(const char* name, bool def);
    // 0 when the field holds a header date, else -1.
    int getFieldTime(const char* name, struct tm* out);
    HeaderField* getFirstField() const { return first_; }
    // The number of fields in the list.
    int getFieldCount() const;

    // What the head says about the body that follows it, for a reader that takes at most
    // `limit` bytes. "Content-Length" must be decimal digits alone; it is read without
    // wrapping, so a value beyond `limit` (however many digits) is kTooLarge and never a
    // smaller number. Several "Content-Length" fields must agree, and a message may not
    // carry both a length and "Transfer-Encoding": either is kBadLength, since two readers
    // of such a message can disagree on where it ends. `length` gets the length for
    // kLength and 0 otherwise.
    enum BodyLength { kNoBody, kLength, kTooLarge, kBadLength, kTransferCoded };
    BodyLength getBodyLength(int64_t limit, int64_t* length);

    // Whether the connection should close after this message: with a known length, whether
    // "Connection" says "close"; without one, the field "Connection: close" is set and the
    // answer is true.
    bool shouldClose();

    void setVersion(const char* version);
    const char* getVersion() const { return version_; }
    int getMajorVersion();  // -1 without a version
    int getMinorVersion();

protected:
    virtual void doCommit() {}
    virtual void onReset() {}
    virtual bool isKnownLength() { return knownLength_; }
    virtual bool readIntro(SocketInput*) { return true; }
    virtual bool writeIntro(SocketOutput*) { return true; }
    virtual bool writeExtraHeaderFields(SocketOutput*) { return true; }

private:
    HttpMessage(const HttpMessage&) = delete;
    HttpMessage& operator=(const HttpMessage&) = delete;
    static void parseVersion(const char* text, int* major, int* minor);
    void deleteFields();

    SocketInput* input_;
    SocketOutput* output_;
    HeaderField* first_ = nullptr;
    HeaderField* last_ = nullptr;
    bool committed_ = false;
    char* version_ = nullptr;
    int major_ = -1;
    int minor_ = -1;
    bool knownLength_ = false;
};

}  // namespace velmora
