// Internal: the line reader shared by the properties files.
#pragma once

#include <cstddef>
#include <string>

namespace velmora {
namespace props {

struct Line {
    enum Kind { End, Comment, Entry, Ignored } kind = End;
    int blanksBefore = 0;  // empty lines between the previous line and this one
    std::string key, value;
    const char* raw = nullptr;  // a comment's bytes, as in the file
    size_t rawLength = 0;
};

// Reads lines from a whole file's text: line-end bytes separate lines (CR LF counts as
// one end), a line holds at most 1023 bytes and a longer one goes on as a further line.
// With `wholeComments` a comment is given with its whole physical line (used when copying
// comments on save); otherwise a comment, too, ends after 1023 bytes.
class LineReader {
public:
    LineReader(const std::string& text, char separator, bool wholeComments)
        : text_(text), separator_(separator), wholeComments_(wholeComments) {}
    bool next(Line& line);  // false once the End line (with trailing blanks) was given

private:
    const std::string& text_;
    char separator_;
    bool wholeComments_;
    size_t pos_ = 0;
    bool done_ = false;
};

// The whole file; false when it cannot be opened or read.
bool readFile(const char* path, std::string* text);

}  // namespace props
}  // namespace velmora
