// Reads characters (0-255) from an owned copy of a text, safe to read from several threads.
//
//   velmora::StringReader in("<a/>", 4);  // all four characters
//   int c = in.getChar();                 // '<'
//
// Kept on purpose: StringReader(const char* s) never delivers the last character of `s`
// (its length is taken one short); pass the length to read the whole text.
#pragma once

#include <velmora/platform/PlatformUtil.h>
#include <velmora/text/CharReader.h>

namespace velmora {

class VELMORA_API StringReader : public CharReader {
public:
    explicit StringReader(const char* s);  // all but the last character; null reads as empty
    StringReader(const char* s, int len);  // exactly `len` bytes, zeros included
    ~StringReader() override;

    int getChar() override;  // 0-255, or -1 at the end
    // The next `size` bytes, or what is left; at the end *buf is null and *len 0.
    void getBuf(int size, char** buf, int* len) override;
    bool eof() override;  // takes no lock

    // The bytes not read yet and how many there are, for readers that scan in bulk.
    // Together with advance() this is the fast path of getChar(); no lock is taken.
    const char* peekRemaining(int* count) const;
    // Moves the position on by `n` bytes (at most to the end).
    void advance(int n);

private:
    // The XML parser scans the buffer in place and keeps its view of it between events.
    friend class XParser;
    StringReader(const StringReader&) = delete;
    StringReader& operator=(const StringReader&) = delete;

    char* buffer_ = nullptr;
    int length_ = 0;
    int position_ = 0;
    PlatformMutex mutex_ = nullptr;
};

}  // namespace velmora
