#include <velmora/collections/MultiKeyPropertiesFile.h>
#include <velmora/files/FileUtil.h>
#include <velmora/text/StringWriter.h>

#include <string>

#include "collections/KeyText.h"
#include "collections/PropertyLines.h"
#include "files/FileSystem.h"

namespace velmora {

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
    props::LineReader reader(text, separator_, false);
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
    StringWriter out(2048);
    for (ListTuple* t = first(); t != nullptr; t = t->getNext()) {
        out.writeString(t->getKey());
        out.write('=');
        out.writeString(t->getValue());
        out.write('\n');
    }
    bool ok = !(fs::exists(path_) && fs::isReadOnly(path_) && !fs::makeWritable(path_));
    if (ok) {
        FileUtil::verifyPath(path_);
        ok = fs::writeThenReplace(path_, out.getString(), static_cast<size_t>(out.getLength()));
    }
    if (ok) modified_ = false;
    unlock();
    return ok;
}

}  // namespace velmora
