// Internal: the line reader shared by the properties files.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace velmora {
namespace props {

struct Line {
    enum Kind { End, Comment, Entry, Ignored } kind = End;
    int blanksBefore = 0;  // empty lines between the previous line and this one
    std::string key, value;
    const char* raw = nullptr;  // the line's bytes, as in the file
    size_t rawLength = 0;
    bool cut = false;  // the line was cut after 1023 bytes and goes on as the next line
};

// Reads lines from a whole file's text: line-end bytes separate lines (CR LF counts as
// one end), a line holds at most 1023 bytes and a longer one goes on as a further line.
// A comment is always its whole physical line, however long: its tail never reads as a
// property.
class LineReader {
public:
    LineReader(const std::string& text, char separator) : text_(text), separator_(separator) {}
    bool next(Line& line);  // false once the End line (with trailing blanks) was given
    // The lines of the next physical line (more than one when it is longer than a line
    // may be); `raw`/`rawLength` of the first then cover the whole physical line. False
    // after the End line.
    bool nextPhysical(std::vector<Line>& lines);

private:
    const std::string& text_;
    char separator_;
    size_t pos_ = 0;
    bool done_ = false;
};

// The whole file; false when it cannot be opened or read.
bool readFile(const char* path, std::string* text);

}  // namespace props
}  // namespace velmora
