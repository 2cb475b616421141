// The store that keeps a map in a text file of "key=value" lines. The file is read again
// only when its modification time has moved on since the last load; saving rewrites it
// with its comments, blank lines and key order kept, and a failed save leaves the old file
// as it was. The key "password" is kept protected by the system's data-protection service
// under "_password" where there is one (Windows); elsewhere it is written in clear.
//
//   velmora::Map* settings = velmora::PropertiesFile::makeMap("conf/daemon.properties", '=');
//   int port = settings->getInt("port", 8080);
//   settings->setInt("port", 8081);
//   settings->getStore()->save();
//   delete settings;  // deletes the store too
//
// Lines: a "#" in the first column makes a comment, however long; the key ends at the
// first separator, the value starts after the separators that follow it; nothing is
// trimmed. Other lines longer than 1023 bytes are read as several lines, and are saved back
// as they were while the map holds what was read from them. Lines without key or value
// are ignored. The file is replaced through FileUtil::rewriteFile.
#pragma once

#include <cstdint>

#include <velmora/collections/Map.h>
#include <velmora/platform/PlatformUtil.h>

namespace velmora {

class VELMORA_API PropertiesFile : public MapStore {
public:
    explicit PropertiesFile(const char* path);  // separator "="
    PropertiesFile(const char* path, char separator);
    ~PropertiesFile() override;

    // Fills the bound map from the file unless the file is unchanged since the last load
    // (true, map untouched). False without a bound map or when the file cannot be read;
    // the map is then as it was.
    bool load() override;
    // Writes the map: lines of keys no longer in the map are dropped. Lines are always
    // written with "=". False when the file cannot be written; the old file stays whole.
    bool save() override;
    bool isModified() override { return modified_; }
    void lock() override;
    void unlock() override;
    void setModified() override { modified_ = true; }
    // As save(), but lines of keys no longer in the map are kept with their file values.
    virtual bool merge();

    const char* getPath() const { return path_; }
    char getSeparator() const { return separator_; }

    // A new ListMap bound to a new PropertiesFile of `path`, loaded at once; the caller
    // owns the map, the map owns the store.
    static Map* makeMap(const char* path, char separator);

private:
    bool write(bool keepDropped);

    char* path_ = nullptr;
    int64_t lastModified_ = 0;
    bool modified_ = false;
    char separator_ = '=';
    PlatformMutex mutex_ = nullptr;
};

}  // namespace velmora
