// A properties file whose keys may repeat, kept as a KeyedList in file order. It reads
// the same lines as PropertiesFile (comments, separator, 1023-byte lines). Saving keeps
// the file's comments, blank lines and order: the n-th line of a key takes the list's
// n-th entry of that key, lines of keys with no entry left are dropped, new entries
// follow in list order, and every line is written with the file's own separator.
//
//   velmora::MultiKeyPropertiesFile routes("conf/routes.properties", '=');
//   routes.load();
//   int n = routes.keyCount("route");
//   routes.add("route", "10.0.0.0/8");
//   routes.save();
#pragma once

#include <cstdint>

#include <velmora/collections/KeyedList.h>

namespace velmora {

class VELMORA_API MultiKeyPropertiesFile : public KeyedList {
public:
    MultiKeyPropertiesFile(const char* path, char separator);
    ~MultiKeyPropertiesFile() override;

    // Replaces the entries with the file's lines unless the file is unchanged since the
    // last load (true, nothing touched). False when the file cannot be read.
    bool load();
    // Writes every entry; false when the file cannot be written (the old file stays whole).
    bool save();

    const char* getPath() const { return path_; }

private:
    char* path_ = nullptr;
    int64_t lastModified_ = 0;
    char separator_ = '=';
};

}  // namespace velmora
