#include <velmora/collections/MultiKeyPropertiesFile.h>
#include <velmora/files/FileUtil.h>
#include <velmora/text/StringWriter.h>

#include <string>
#include <vector>

#include "collections/KeyText.h"
#include "collections/PropertyLines.h"
#include "files/FileSystem.h"

namespace velmora {

namespace {

// A list entry on its way into the file.
struct Pending {
    const char* key;
    const char* value;
    bool written;
};

// The first entry of the key not written yet.
Pending* nextOf(std::vector<Pending>& entries, const char* key) {
    for (Pending& entry : entries) {
        if (!entry.written && keytext::equal(entry.key, key)) return &entry;
    }
    return nullptr;
}

// True, with the entries taken, when every entry read from the parts of one long line
// is the next of its key in the list with the same value.
bool takeUnchanged(const std::vector<props::Line>& lines, std::vector<Pending>& entries) {
    std::vector<Pending*> taken;
    bool same = true;
    for (const props::Line& line : lines) {
        if (line.kind != props::Line::Entry) continue;
        Pending* entry = nextOf(entries, line.key.c_str());
        same = entry != nullptr && line.value == entry->value;
        if (!same) break;
        entry->written = true;
        taken.push_back(entry);
    }
    if (!same) {
        for (Pending* entry : taken)
            entry->written = false;
    }
    return same;
}

void writeEntry(StringWriter& out, Pending& entry, char separator) {
    out.writeString(entry.key);
    out.write(separator);
    out.writeString(entry.value);
    out.write('\n');
    entry.written = true;
}

}  // namespace

MultiKeyPropertiesFile::MultiKeyPropertiesFile(const char* path, char separator)
    : path_(keytext::copy(path != nullptr ? path : "")), separator_(separator) {}

MultiKeyPropertiesFile::~MultiKeyPropertiesFile() {
    delete[] path_;
}

bool MultiKeyPropertiesFile::load() {
    lock();
    int64_t time = 0;
    bool timeKnown = fs::modificationTime(path_, &time);
    if (timeKnown && time <= lastModified_) {
        unlock();
        return true;
    }
    std::string text;
    if (!props::readFile(path_, &text)) {
        unlock();
        return false;
    }
    // A fresh list: the count starts again from the file's entries.
    reset();
    props::LineReader reader(text, separator_);
    props::Line line;
    while (reader.next(line)) {
        if (line.kind == props::Line::Entry) add(line.key.c_str(), line.value.c_str());
    }
    if (timeKnown) lastModified_ = time;
    modified_ = false;
    unlock();
    return true;
}

bool MultiKeyPropertiesFile::save() {
    lock();
    // The file's lines are walked in order: comments and blank lines are copied, the n-th
    // line of a key takes the list's n-th entry of that key, lines whose key has no entry
    // left are dropped, and the entries left over follow in list order.
    std::vector<Pending> entries;
    for (ListTuple* t = first(); t != nullptr; t = t->getNext())
        entries.push_back({t->getKey(), t->getValue(), false});
    StringWriter out(2048);
    std::string text;
    if (props::readFile(path_, &text)) {
        props::LineReader reader(text, separator_);
        std::vector<props::Line> lines;
        while (reader.nextPhysical(lines)) {
            const props::Line& whole = lines.front();
            for (int n = whole.blanksBefore; n > 0; --n)
                out.write('\n');
            if (whole.kind == props::Line::End) break;
            if (lines.size() > 1 && takeUnchanged(lines, entries)) {
                // A line longer than a line may be stays as it is while the list still
                // holds what a load takes from it.
                out.write(whole.raw, static_cast<int>(whole.rawLength));
                out.write('\n');
                continue;
            }
            for (const props::Line& line : lines) {
                if (line.kind == props::Line::Comment) {
                    out.write(line.raw, static_cast<int>(line.rawLength));
                    out.write('\n');
                } else if (line.kind == props::Line::Entry) {
                    Pending* entry = nextOf(entries, line.key.c_str());
                    if (entry != nullptr) writeEntry(out, *entry, separator_);
                }
            }
        }
    }
    for (Pending& entry : entries) {
        if (!entry.written) writeEntry(out, entry, separator_);
    }
    bool ok = !(fs::exists(path_) && fs::isReadOnly(path_) && !fs::makeWritable(path_));
    if (ok) {
        FileUtil::verifyPath(path_);
        ok = FileUtil::rewriteFile(path_, out.getString(), static_cast<size_t>(out.getLength()));
    }
    if (ok) modified_ = false;
    unlock();
    return ok;
}

}  // namespace velmora
