// A small, lenient pull parser for XML: next() reports the start and end of elements and
// the text between them, and parse() builds an element tree. It reads single-byte ASCII:
// the first byte above 127 ends the input for good (in the UTF-8 mode, setUtf8, the first
// byte that is not part of well-formed UTF-8). Declarations, processing
// instructions, comments and document types are skipped; malformed markup gives event 4
// or is dropped silently, never an error message; end tags are not checked.
//
//   std::unique_ptr<velmora::FileReader> in(velmora::FileReader::make("settings.xml"));
//   velmora::XParser parser(in.get());
//   std::unique_ptr<velmora::XElem> root(parser.parse(true));  // null on early end
#pragma once

#include <velmora/text/CharReader.h>
#include <velmora/xml/XElem.h>
#include <velmora/xml/XNs.h>
#include <velmora/xml/XText.h>

namespace velmora {

class FileReader;
class StringReader;

class VELMORA_API XParser {
public:
    enum { START = 1, END = 2, TEXT = 3, MALFORMED = 4, EOI = -1 };
    // Nesting levels the parser keeps; a start tag deeper than this reads as malformed.
    enum { MAX_DEPTH = 256 };

    explicit XParser(CharReader* in);  // not owned; close() closes it
    ~XParser();                        // leaves the reader open

    // The next event: 1 start, 2 end, 3 text, 4 malformed markup, -1 end of input.
    int next();
    // The innermost open element (also during its end event), or null. Parser-owned and
    // reused for the next element at that depth: newCopy() what you keep.
    XElem* elem() const;
    XText* text() const;  // the text of a text event, else null; reused too
    // Reads on until the end event at `depth` (or the end of input): right after a start
    // event, skip(getDepth()) passes over that element's subtree.
    void skip(int depth);
    // Reads the next event and, when it starts an element, the whole element as a new
    // caller-owned tree; else null. Closes the reader first when `close` is set.
    XElem* parse(bool close);
    // The element of the current start event with everything up to its end; null when
    // the input ends before (the partial tree is dropped).
    XElem* parseCurrent(bool close);
    void close();

    // UTF-8 mode: well-formed UTF-8 is read as text (the first byte that is not part of a
    // well-formed sequence ends the input; so do U+FFFE and U+FFFF, no characters of XML)
    // and character references decode to the UTF-8 of the character they name (U+FFFD
    // for a value that names none, and where the default mode reads the byte 255). Off by
    // default: the parser then reads ASCII only.
    void setUtf8(bool on) { utf8_ = on; }
    bool isUtf8() const { return utf8_; }

    int getType() const { return type_; }
    int getDepth() const { return depth_; }
    int getLine() const { return line_; }
    int getColumn() const { return column_; }

    // Releases the process-wide character-class table (rebuilt by the next parser).
    static void unload();

    struct NsDecl;  // a namespace declared at one level

private:
    XParser(const XParser&) = delete;
    XParser& operator=(const XParser&) = delete;

    int fetch();
    int refill();
    bool acceptUtf8(int c);
    bool direct() const { return pushback_ < 0 && lookahead_ < 0 && !stopped_ && utf8Need_ == 0; }
    void appendDecoded(int c);
    void sync();
    void checkWindow();  // drops the kept window when the reader moved since sync()
    int readChar();
    int readRaw();
    void finishChar(int c);
    void pushBack(int c) { pushback_ = c; }
    bool skipWhitespace();
    bool readQName(int c);
    int readPlainName(int c, char** buf, int* cap);
    int decode(int c);
    int decodeReference();
    int decodeEntity(int first);
    bool readText(int first);
    void readCData();
    void skipComment();
    void skipDoctype();
    void skipInstruction();
    void consume(const char* expected);
    bool readStartTag(int first);
    void readAttribute(int first, int level);
    void readEndTag();
    void declare(int level, const char* prefix, const char* uri);
    const XNs* lookup(const char* prefix) const;
    void pop();
    void setText(bool cdata);
    void fillText() const;
    bool append(char** buf, int* len, int* cap, int c);
    void appendRun(char** buf, int* len, int* cap, const unsigned char* run, int n);

    int line_ = 1;
    int column_ = 0;
    int depth_ = 0;
    int type_ = 0;
    CharReader* reader_;
    int pushback_ = -1;   // a character handed back, -1: none
    int lookahead_ = -1;  // the raw byte read after a CR, -1: none
    mutable XText* text_;
    mutable bool textPending_ = false;  // the last text is still only in buf_
    bool textCdata_ = false;
    XElem** elemStack_;
    NsDecl** nsStack_;
    bool popPending_ = false;
    bool emptyPending_ = false;
    XNs* defaultNs_ = nullptr;
    // Once a byte above 127 (or the end) is read, every later read is the end.
    bool stopped_ = false;
    bool utf8_ = false;
    // In the UTF-8 mode, the continuation bytes still due in the sequence being read and
    // the bounds of the next one.
    int utf8Need_ = 0;
    unsigned char utf8Lo_ = 0x80;
    unsigned char utf8Hi_ = 0xBF;
    unsigned char utf8Lead_ = 0;

    const unsigned char* classes_;
    // A view of the reader's own buffer for StringReader and FileReader, read without a
    // call per byte and handed back to the reader (advance) before next() returns.
    StringReader* stringReader_ = nullptr;
    FileReader* fileReader_ = nullptr;
    const unsigned char* cur_ = nullptr;
    const unsigned char* end_ = nullptr;
    const unsigned char* windowStart_ = nullptr;

    // Scratch texts: the last local name and prefix, the text being read, an attribute
    // value. Each starts inline-sized and only grows.
    char* name_;
    int nameCap_;
    int nameLen_ = 0;
    bool hasName_ = false;
    char* prefix_;
    int prefixCap_;
    bool hasPrefix_ = false;
    char* buf_;
    int bufCap_;
    int bufLen_ = 0;
};

}  // namespace velmora
