// The library's string-to-string dictionary interface. Keys match ignoring the case of the
// ASCII letters only; values are read as texts or converted to int, 64-bit or bool. Every
// map is bound to one MapStore, which loads and saves its entries, keeps a modified flag
// and supplies the map's (re-entrant) lock.
//
//   velmora::Map* m = velmora::NullMapStore::makeMap();
//   m->setInt("Port", 8080);
//   char* host = nullptr;
//   m->get("HOST", &host, "localhost");  // a copy, given back with velmora::release
//   velmora::release(host);
//   delete m;                             // deletes the store too
#pragma once

#include <cstdint>

#include <velmora/Export.h>
#include <velmora/text/Release.h>

namespace velmora {

class Map;

// One key/value entry.
class VELMORA_API MapTuple {
public:
    virtual ~MapTuple();
    virtual void setValue(const char* value) = 0;  // null leaves the value unchanged
    virtual const char* getKey() = 0;
    virtual const char* getValue() = 0;
    // The value as a number: `def` for an empty text, or for one that gives 0 without
    // starting with "0" (so "abc", "-0" and " 0" give `def`, "12abc" gives 12).
    virtual int getIntValue(int def) = 0;
    // True exactly for "true" in any case; every other non-empty text is false, not `def`.
    virtual bool getBooleanValue(bool def) = 0;
    virtual int64_t getLongValue(int64_t def) = 0;
};

// Walks a map in its order. It starts before the first entry:
//   while (it->hasNext()) { it->moveNext(); it->getKey(buf, n); ... }
// It takes no lock; lock the map around the whole walk when other threads write.
class VELMORA_API MapIterator {
public:
    virtual ~MapIterator();
    virtual Map* getMap() = 0;
    virtual bool hasNext() = 0;
    virtual void moveNext() = 0;
    // Zero all `size` bytes, then copy at most `size` bytes of the current key or value:
    // a text of `size` characters or more leaves no terminator.
    virtual char* getKey(char* buf, int size) = 0;
    virtual char* getValue(char* buf, int size) = 0;
    virtual int getIntValue(int def) = 0;
    virtual bool getBooleanValue(bool def) = 0;
    virtual int64_t getLongValue(int64_t def) = 0;
    // Removes the current entry; the walk goes on with the entry that followed it.
    virtual void deleteCurrent() = 0;
};

// The persistence back end of one map.
class VELMORA_API MapStore {
public:
    virtual bool load() = 0;
    virtual bool save() = 0;
    virtual bool isModified() = 0;
    virtual void lock() = 0;
    virtual void unlock() = 0;
    virtual void setModified() = 0;
    virtual Map* getMap() { return map_; }
    virtual ~MapStore();

protected:
    MapStore() = default;

private:
    MapStore(const MapStore&) = delete;
    MapStore& operator=(const MapStore&) = delete;
    friend class Map;
    Map* map_ = nullptr;  // set by the map that is constructed with this store
};

class VELMORA_API Map {
public:
    // Deletes the store.
    virtual ~Map();
    virtual void clear() = 0;
    virtual MapStore* getStore() { return store_; }
    // Fills all `size` bytes: zeros, then at most `size` bytes of the value (or of `def`
    // when the key is absent). A text of `size` characters or more leaves no terminator.
    virtual char* get(const char* key, char* buf, int size, const char* def) = 0;
    // `*out` becomes a new copy of the value (or of `def`), or null when both are absent;
    // give it back with velmora::release (or freeValue, the same).
    virtual void get(const char* key, char** out, const char* def) = 0;
    virtual int getInt(const char* key, int def) = 0;
    virtual int64_t getLong(const char* key, int64_t def) = 0;
    virtual bool getBoolean(const char* key, bool def) = 0;
    // Sets every entry of `from` on this map.
    virtual void copyAll(Map* from) = 0;
    // Null key or value: nothing. An existing key (any case) keeps its place and spelling.
    virtual void set(const char* key, const char* value) = 0;
    virtual void setInt(const char* key, int value) = 0;
    virtual void setBoolean(const char* key, bool value) = 0;  // "true" or "false"
    virtual void setLong(const char* key, int64_t value) = 0;
    virtual bool remove(const char* key) = 0;
    virtual bool containsKey(const char* key) = 0;
    virtual int getSize() = 0;
    virtual bool isEmpty() { return getSize() == 0; }
    virtual void lock() = 0;
    virtual void unlock() = 0;
    virtual MapIterator* makeIterator() = 0;

    // Frees a text handed out by get(key, out, def), as velmora::release does. Null is
    // allowed.
    static void freeValue(char* value);

protected:
    // Binds the store (the map owns it from now on) and points it back at this map.
    explicit Map(MapStore* store);

private:
    Map(const Map&) = delete;
    Map& operator=(const Map&) = delete;
    MapStore* store_ = nullptr;
};

}  // namespace velmora
