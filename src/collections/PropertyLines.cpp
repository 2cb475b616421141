#include "collections/PropertyLines.h"

#include <cstring>

#include "files/FileSystem.h"

namespace velmora {
namespace props {

namespace {

const size_t kMaxLine = 1023;

bool isLineEnd(char c) {
    return c == '\n' || c == '\r';
}

}  // namespace

bool LineReader::next(Line& line) {
    if (done_) return false;
    const size_t size = text_.size();
    const bool atStart = pos_ == 0;
    int ends = 0;
    while (pos_ < size && isLineEnd(text_[pos_])) {
        if (text_[pos_] == '\r' && pos_ + 1 < size && text_[pos_ + 1] == '\n') ++pos_;
        ++pos_;
        ++ends;
    }
    // The first line end closes the previous line; each further one is an empty line.
    line.blanksBefore = atStart ? ends : (ends > 0 ? ends - 1 : 0);
    line.key.clear();
    line.value.clear();
    line.raw = nullptr;
    line.rawLength = 0;
    line.cut = false;
    if (pos_ >= size) {
        line.kind = Line::End;
        done_ = true;
        return true;
    }
    const size_t start = pos_;
    size_t end = start;
    const bool comment = text_[start] == '#';
    while (end < size && !isLineEnd(text_[end]) && (comment || end - start < kMaxLine))
        ++end;
    line.raw = text_.data() + start;
    line.rawLength = end - start;
    line.cut = end < size && !isLineEnd(text_[end]);
    if (comment) {
        pos_ = end;
        line.kind = Line::Comment;
        return true;
    }
    pos_ = end;
    // Keys and values are C texts: a NUL byte ends the line's usable part.
    const char* p = text_.data() + start;
    size_t n = end - start;
    const void* nul = std::memchr(p, '\0', n);
    if (nul != nullptr) n = static_cast<size_t>(static_cast<const char*>(nul) - p);
    const void* sep = std::memchr(p, separator_, n);
    line.kind = Line::Ignored;
    if (sep == nullptr) return true;
    size_t k = static_cast<size_t>(static_cast<const char*>(sep) - p);
    size_t v = k + 1;
    while (v < n && p[v] == separator_)
        ++v;
    if (k == 0 || v >= n) return true;
    line.kind = Line::Entry;
    line.key.assign(p, k);
    line.value.assign(p + v, n - v);
    return true;
}

bool LineReader::nextPhysical(std::vector<Line>& lines) {
    lines.clear();
    do {
        lines.emplace_back();
        if (!next(lines.back())) {
            lines.pop_back();
            return false;
        }
    } while (lines.back().cut);
    Line& first = lines.front();
    first.rawLength = static_cast<size_t>(lines.back().raw + lines.back().rawLength - first.raw);
    return true;
}

bool readFile(const char* path, std::string* text) {
    int fd = fs::openForReading(path);
    if (fd < 0) return false;
    text->clear();
    char buf[16384];
    int n;
    while ((n = fs::readBytes(fd, buf, sizeof buf)) > 0)
        text->append(buf, static_cast<size_t>(n));
    fs::closeDescriptor(fd);
    return n == 0;
}

}  // namespace props
}  // namespace velmora
