// Reads the bytes of a file in binary mode.
//
//   std::unique_ptr<velmora::FileReader> in(velmora::FileReader::make("conf.xml"));
//
// Kept on purpose: getChar() returns the byte as a signed character, so bytes 0x80-0xFF
// come back negative and 0xFF reads as -1 although eof() is still false. Check eof().
#pragma once

#include <velmora/text/CharReader.h>

namespace velmora {

class VELMORA_API FileReader : public CharReader {
public:
    // Opens the file read-only; null when it cannot be opened.
    static FileReader* make(const char* path);
    ~FileReader() override;

    int getChar() override;
    // A zero-filled block of up to `size` bytes. At the end or on an error *buf is null,
    // *len holds the read's result (0 or -1) and eof() becomes true.
    void getBuf(int size, char** buf, int* len) override;
    void close() override;
    bool eof() override { return atEof_; }

    // The bytes read ahead and not delivered yet, reading the next block from the file
    // when none are left; a count of 0 at the end (eof() is then true) or once closed.
    // Together with advance() this is the fast path of getChar() for readers that scan
    // in bulk; the bytes are raw (getChar() gives them as signed characters).
    const char* peekBuffered(int* count);
    // Moves on by `n` of the bytes peekBuffered() offered (at most all of them).
    void advance(int n);

private:
    // The XML parser scans the buffer in place and keeps its view of it between events.
    friend class XParser;
    explicit FileReader(int fd);
    FileReader(const FileReader&) = delete;
    FileReader& operator=(const FileReader&) = delete;
    bool fill();

    int fd_;
    bool atEof_ = false;
    // Bytes read ahead from the file, so that getChar() costs no system call per byte.
    char* ahead_ = nullptr;
    int aheadPos_ = 0;
    int aheadLen_ = 0;
};

}  // namespace velmora
