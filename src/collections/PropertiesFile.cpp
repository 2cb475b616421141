#include <velmora/collections/ListMap.h>
#include <velmora/collections/PropertiesFile.h>
#include <velmora/files/FileUtil.h>
#include <velmora/text/StringWriter.h>

#include <string>
#include <vector>

#include "collections/KeyText.h"
#include "collections/PropertyLines.h"
#include "collections/Protection.h"
#include "files/FileSystem.h"

namespace velmora {

namespace {

const char kPassword[] = "password";
const char kProtectedPassword[] = "_password";

void writeLine(StringWriter& out, const char* key, const char* value) {
    out.writeString(key);
    out.write('=');  // always "=", whatever the file's separator
    out.writeString(value);
    out.write('\n');
}

// The password goes under "_password" when the system protects it, else in clear under
// the key's spelling in the map.
void writePassword(StringWriter& out, const char* key, const char* value) {
    std::string text;
    if (protection::protect(value, &text)) {
        writeLine(out, kProtectedPassword, text.c_str());
    } else {
        writeLine(out, key, value);
    }
}

void writeBlanks(StringWriter& out, int n) {
    for (; n > 0; --n)
        out.write('\n');
}

bool isPasswordKey(const char* key) {
    return keytext::equal(key, kPassword) || keytext::equal(key, kProtectedPassword);
}

// Where the map's password goes in the file: at the first line that a load takes it from,
// a clear "password" line or a "_password" line this system can read. That keeps the
// order of a saved and reloaded map as it was.
bool isPasswordPlace(const props::Line& line) {
    if (keytext::equal(line.key.c_str(), kPassword)) return true;
    std::string clear;
    return keytext::equal(line.key.c_str(), kProtectedPassword) &&
           protection::unprotect(line.value.c_str(), &clear);
}

// Writes one map entry, taking it out of `pending`.
void writePending(StringWriter& out, ListMap& pending, const char* key, const char* lookup) {
    char* value = nullptr;
    pending.get(lookup, &value, nullptr);
    if (keytext::equal(lookup, kPassword)) {
        ListMapIterator it(&pending);
        while (it.hasNext()) {
            it.moveNext();
            if (keytext::equal(it.getTuple()->getKey(), kPassword)) break;
        }
        writePassword(out, it.getTuple()->getKey(), value);
    } else {
        writeLine(out, key, value);
    }
    Map::freeValue(value);
    pending.remove(lookup);
}

// True when every entry read from the parts of one long line is still in the map with
// the value read (passwords aside: they are always written through protection).
bool isUnchanged(const std::vector<props::Line>& lines, ListMap& pending) {
    for (const props::Line& line : lines) {
        if (line.kind != props::Line::Entry) continue;
        if (isPasswordKey(line.key.c_str())) return false;
        char* value = nullptr;
        pending.get(line.key.c_str(), &value, nullptr);
        bool same = value != nullptr && line.value == value;
        Map::freeValue(value);
        if (!same) return false;
    }
    return true;
}

class StoreLock {
public:
    explicit StoreLock(MapStore* store) : store_(store) { store_->lock(); }
    ~StoreLock() { store_->unlock(); }

private:
    MapStore* store_;
};

}  // namespace

PropertiesFile::PropertiesFile(const char* path) : PropertiesFile(path, '=') {}

PropertiesFile::PropertiesFile(const char* path, char separator)
    : path_(keytext::copy(path != nullptr ? path : "")), separator_(separator) {
    PlatformUtil::createMutex(&mutex_);
}

PropertiesFile::~PropertiesFile() {
    PlatformUtil::lockMutex(&mutex_);
    PlatformUtil::destroyMutex(&mutex_);
    delete[] path_;
}

void PropertiesFile::lock() {
    PlatformUtil::lockMutex(&mutex_);
}

void PropertiesFile::unlock() {
    PlatformUtil::unlockMutex(&mutex_);
}

bool PropertiesFile::load() {
    Map* map = getMap();
    if (map == nullptr) return false;
    // The time is read under the lock (two threads loading at once agree) and before the
    // text, so that a change made while the file is read shows as a later time next time.
    StoreLock hold(this);
    int64_t time = 0;
    bool timeKnown = fs::modificationTime(path_, &time);
    if (timeKnown && time <= lastModified_) return true;
    std::string text;
    if (!props::readFile(path_, &text)) return false;
    map->clear();
    props::LineReader reader(text, separator_);
    props::Line line;
    while (reader.next(line)) {
        if (line.kind != props::Line::Entry) continue;
        if (keytext::equal(line.key.c_str(), kProtectedPassword)) {
            std::string clear;
            // A value this system cannot recover is left in the file and out of the map.
            if (protection::unprotect(line.value.c_str(), &clear))
                map->set(kPassword, clear.c_str());
            continue;
        }
        map->set(line.key.c_str(), line.value.c_str());
    }
    if (timeKnown) lastModified_ = time;
    modified_ = false;
    return true;
}

bool PropertiesFile::save() {
    return write(false);
}

bool PropertiesFile::merge() {
    return write(true);
}

bool PropertiesFile::write(bool keepDropped) {
    StoreLock hold(this);
    Map* map = getMap();
    if (map == nullptr) return true;
    StringWriter out(2048);
    ListMap pending;
    pending.copyAll(map);
    std::string text;
    if (props::readFile(path_, &text)) {
        props::LineReader reader(text, separator_);
        std::vector<props::Line> lines;
        while (reader.nextPhysical(lines)) {
            const props::Line& whole = lines.front();
            writeBlanks(out, whole.blanksBefore);
            if (whole.kind == props::Line::End) break;
            if (lines.size() > 1 && isUnchanged(lines, pending)) {
                // A line longer than a line may be is kept as it is while the map still
                // holds what a load takes from it, so that saving loses none of it.
                out.write(whole.raw, static_cast<int>(whole.rawLength));
                out.write('\n');
                for (const props::Line& line : lines) {
                    if (line.kind == props::Line::Entry) pending.remove(line.key.c_str());
                }
                continue;
            }
            for (const props::Line& line : lines) {
                if (line.kind == props::Line::Comment) {
                    out.write(line.raw, static_cast<int>(line.rawLength));
                    out.write('\n');
                } else if (line.kind == props::Line::Entry) {
                    const char* key = line.key.c_str();
                    if (isPasswordKey(key)) {
                        if (isPasswordPlace(line) && pending.containsKey(kPassword)) {
                            writePending(out, pending, key, kPassword);
                            continue;
                        }
                    } else if (pending.containsKey(key)) {
                        writePending(out, pending, key, key);
                        continue;
                    }
                    if (keepDropped && !(isPasswordKey(key) && map->containsKey(kPassword))) {
                        writeLine(out, key, line.value.c_str());
                    }
                }
            }
        }
    }
    // Keys that the file did not have yet, in map order.
    ListMapIterator it(&pending);
    while (it.hasNext()) {
        it.moveNext();
        MapTuple* t = it.getTuple();
        if (keytext::equal(t->getKey(), kPassword)) {
            writePassword(out, t->getKey(), t->getValue());
        } else {
            writeLine(out, t->getKey(), t->getValue());
        }
    }
    if (fs::exists(path_) && fs::isReadOnly(path_) && !fs::makeWritable(path_)) return false;
    FileUtil::verifyPath(path_);
    if (!FileUtil::rewriteFile(path_, out.getString(), static_cast<size_t>(out.getLength())))
        return false;
    // lastModified_ stays: the next load() reads the file back as written.
    modified_ = false;
    return true;
}

Map* PropertiesFile::makeMap(const char* path, char separator) {
    return new ListMap(new PropertiesFile(path, separator));
}

}  // namespace velmora
