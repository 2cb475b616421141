// The in-memory map: entries in insertion order, keys unique as far as set() is concerned
// and matched ignoring ASCII case, with an index beside the list so that lookups take
// constant time whatever the map's size.
//
//   velmora::ListMap settings;
//   settings.set("Port", "8080");
//   int port = settings.getInt("PORT", 80);  // 8080, key still spelled "Port"
//
// Kept on purpose, because callers rely on it: clear() leaves getSize() at the former
// number (isEmpty() stays false) until entries are added again; getInt, getLong,
// getBoolean, getSize and the iterator take no lock.
#pragma once

#include <velmora/collections/Map.h>

namespace velmora {

class ListMap;

class VELMORA_API ListTuple : public MapTuple {
public:
    ListTuple(const char* key, const char* value);
    ~ListTuple() override;
    void setValue(const char* value) override;
    const char* getKey() override { return key_; }
    const char* getValue() override { return value_; }
    int getIntValue(int def) override;
    bool getBooleanValue(bool def) override;
    int64_t getLongValue(int64_t def) override;
    ListTuple* getNext() const { return next_; }

private:
    ListTuple(const ListTuple&) = delete;
    ListTuple& operator=(const ListTuple&) = delete;
    friend class ListMap;
    friend class KeyedList;
    friend class ListMapIterator;
    char* key_ = nullptr;
    char* value_ = nullptr;
    ListTuple* next_ = nullptr;
    ListTuple* prev_ = nullptr;  // lets a removal unlink without walking the list
};

class VELMORA_API ListMapIterator : public MapIterator {
public:
    explicit ListMapIterator(ListMap* map);
    Map* getMap() override;
    bool hasNext() override;
    void moveNext() override;
    char* getKey(char* buf, int size) override;
    char* getValue(char* buf, int size) override;
    int getIntValue(int def) override;
    bool getBooleanValue(bool def) override;
    int64_t getLongValue(int64_t def) override;
    void deleteCurrent() override;
    // The entry the iterator stands on, or null.
    MapTuple* getTuple() { return current_; }

private:
    ListTuple* current_ = nullptr;
    ListTuple* pending_ = nullptr;  // where the next moveNext() goes
    ListMap* map_ = nullptr;
};

class VELMORA_API ListMap : public Map {
public:
    ListMap();                          // binds a fresh NullMapStore; loads nothing
    explicit ListMap(MapStore* store);  // takes ownership and loads from it at once
    ~ListMap() override;

    void clear() override;
    MapStore* getStore() override;
    char* get(const char* key, char* buf, int size, const char* def) override;
    void get(const char* key, char** out, const char* def) override;
    int getInt(const char* key, int def) override;
    int64_t getLong(const char* key, int64_t def) override;
    bool getBoolean(const char* key, bool def) override;
    void copyAll(Map* from) override;
    void set(const char* key, const char* value) override;
    void setInt(const char* key, int value) override;
    void setBoolean(const char* key, bool value) override;
    void setLong(const char* key, int64_t value) override;
    // Removes the first entry with the key; a later duplicate (see newCopy) stays.
    bool remove(const char* key) override;
    bool containsKey(const char* key) override;
    int getSize() override;
    void lock() override;
    void unlock() override;
    MapIterator* makeIterator() override;

    // A new map bound to `store`, loaded from it, then given every entry of this map in
    // order without checking for duplicates: the loaded entries come first and lookups find
    // them. Takes no lock on this map.
    virtual Map* newCopy(MapStore* store);
    virtual Map* newCopy();  // with a fresh NullMapStore

private:
    friend class ListMapIterator;
    struct Index;
    ListTuple* findTuple(const char* key) const;
    void append(const char* key, const char* value);
    void unlink(ListTuple* t);
    void notifyModified();

    ListTuple* tail_ = nullptr;
    int count_ = 0;
    ListTuple* head_ = nullptr;
    Index* index_ = nullptr;
};

}  // namespace velmora
