// The MIME table of Http: a map from file extension to type, and the default type.
#include <velmora/collections/ListMap.h>
#include <velmora/collections/PropertiesFile.h>
#include <velmora/http/Http.h>

#include <cstdlib>
#include <cstring>

namespace velmora {

namespace {

const char kOctetStream[] = "application/octet-stream";

// Made on first use without a lock, like the other tables of the HTTP layer: callers set
// them up before starting threads.
Map* table = nullptr;
char* defaultType = nullptr;

Map* mimeTable() {
    if (table == nullptr) table = new ListMap();
    return table;
}

void copyCut(const char* text, char* out, int size) {
    size_t n = std::strlen(text);
    if (n > static_cast<size_t>(size - 1)) n = static_cast<size_t>(size - 1);
    std::memcpy(out, text, n);
    out[n] = '\0';
}

}  // namespace

bool Http::loadMimeTable(const char* file) {
    if (file == nullptr) return false;
    Map* loaded = PropertiesFile::makeMap(file, '=');
    // The map loaded on construction; a second load tells whether the file was readable
    // (an unchanged file is not read again).
    if (!loaded->getStore()->load()) {
        delete loaded;
        return false;
    }
    setMimeTable(loaded);
    return true;
}

void Http::setMimeTable(Map* map) {
    if (map == table) return;
    delete table;
    table = map;
}

void Http::addMimeType(const char* extension, const char* type) {
    mimeTable()->set(extension, type);
}

char* Http::getMimeType(const char* name, char* out, int size) {
    if (out == nullptr || size <= 0) return out;
    const char* dot = name != nullptr ? std::strrchr(name, '.') : nullptr;
    char* type = nullptr;
    if (dot != nullptr && table != nullptr) table->get(dot + 1, &type, nullptr);
    copyCut(type != nullptr ? type : getDefaultMimeType(), out, size);
    Map::freeValue(type);
    return out;
}

void Http::setDefaultMimeType(const char* type) {
    std::free(defaultType);
    defaultType = nullptr;
    if (type != nullptr) {
        size_t n = std::strlen(type) + 1;
        defaultType = static_cast<char*>(std::malloc(n));
        if (defaultType != nullptr) std::memcpy(defaultType, type, n);
    }
}

const char* Http::getDefaultMimeType() {
    return defaultType != nullptr ? defaultType : kOctetStream;
}

void Http::unload() {
    delete table;
    table = nullptr;
    std::free(defaultType);
    defaultType = nullptr;
}

}  // namespace velmora
