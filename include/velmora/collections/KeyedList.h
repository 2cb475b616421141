// An ordered list of key/value texts in which a key may repeat. Entries are found by key
// (the first match, ignoring ASCII case) or by position, and locked with the list's own
// re-entrant mutex.
//
//   velmora::KeyedList hosts;
//   hosts.add("server", "a.example");
//   hosts.add("SERVER", "b.example");
//   hosts.keyCount("server");       // 2
//   char buf[64];
//   hosts.getAtIndex(1, buf, 64);   // "b.example"
//
// Kept on purpose, because callers rely on them: remove(i) and clear() leave the count as
// it was (positions up to the old count are still accepted and simply find nothing), and
// duplicateDeep() moves the entries into the copy, leaving this list empty.
#pragma once

#include <atomic>

#include <cstdint>

#include <velmora/collections/ListMap.h>
#include <velmora/platform/PlatformUtil.h>

namespace velmora {

class VELMORA_API KeyedList {
public:
    KeyedList();
    virtual ~KeyedList();

    void lock();
    void unlock();

    // Appends without looking for the key; null key or value: nothing.
    void add(const char* key, const char* value);
    void addInt(const char* key, int value);
    void addLong(const char* key, int64_t value);
    void addBoolean(const char* key, bool value);  // "true" or "false"

    // Replace the value at a position; null value or a position at or past the count:
    // nothing.
    void set(int i, const char* value);
    void setInt(int i, int value);
    void setLong(int i, int64_t value);
    void setBoolean(int i, bool value);

    // As ListMap::get: the first match, `def` when absent, no terminator when the text
    // fills the buffer; the allocated copy is given back with velmora::release.
    char* get(const char* key, char* buf, int size, const char* def);
    void get(const char* key, char** out, const char* def);
    // The value or key at a position. At or past the count only buf[0] is cleared.
    char* getAtIndex(int i, char* buf, int size);
    char* getKey(int i, char* buf, int size);
    int keyCount(const char* key);

    int getInt(const char* key, int def);
    int64_t getLong(const char* key, int64_t def);
    bool getBoolean(const char* key, bool def);
    // -1, -1 and false at or past the count or for an entry without a number.
    int getIntAtIndex(int i);
    int64_t getLongAtIndex(int i);
    bool getBooleanAtIndex(int i);

    void remove(int i);
    // Removes every entry with the key; true when one was there.
    bool removeAll(const char* key);
    void clear();
    // A new list (the caller's) with this list's entries in order. This list is left
    // without entries; its count stays.
    KeyedList* duplicateDeep();

    int getCount() const { return count_; }
    bool isModified() const { return modified_; }

protected:
    // Frees every entry and starts the count again from zero (a fresh load).
    void reset();
    ListTuple* first() const { return head_; }
    bool modified_ = false;  // set by add and set; cleared only by derived classes

private:
    KeyedList(const KeyedList&) = delete;
    KeyedList& operator=(const KeyedList&) = delete;
    ListTuple* at(int i) const;  // null past the last entry
    ListTuple* find(const char* key) const;
    void freeAll(ListTuple* t);

    ListTuple* tail_ = nullptr;
    ListTuple* head_ = nullptr;
    int count_ = 0;
    PlatformMutex makeMutex();
    // Made on the first lock: most lists (a header field's attributes) are never locked.
    std::atomic<PlatformMutex> mutex_{nullptr};
    ListTuple* detached_ = nullptr;  // entries given away by duplicateDeep, freed at the end
};

}  // namespace velmora
