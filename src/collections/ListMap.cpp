#include <velmora/collections/ListMap.h>
#include <velmora/collections/NullMapStore.h>

#include <vector>

#include "collections/KeyText.h"

namespace velmora {

namespace {

// Holds the lock of a map for one scope.
class MapLock {
public:
    explicit MapLock(Map* map) : map_(map) { map_->lock(); }
    ~MapLock() { map_->unlock(); }

private:
    Map* map_;
};

}  // namespace

// The index beside the list: open addressing with linear probing over (hash, tuple)
// slots, at most half full. The stored hash lets a probe pass other keys without reading
// their text; removal shifts later slots back, so no tombstones build up.
struct ListMap::Index {
    struct Slot {
        size_t hash;
        ListTuple* tuple;  // null: empty slot
    };
    std::vector<Slot> slots;
    size_t used = 0;
    // newCopy() may append a key that is already there; only then must a removal look
    // for a later tuple with the same key.
    bool duplicates = false;

    ListTuple* find(const char* key) const {
        if (used == 0) return nullptr;
        const size_t h = keytext::hash(key);
        const size_t mask = slots.size() - 1;
        for (size_t i = h & mask; slots[i].tuple != nullptr; i = (i + 1) & mask) {
            if (slots[i].hash == h && keytext::equal(slots[i].tuple->getKey(), key))
                return slots[i].tuple;
        }
        return nullptr;
    }

    // Indexes the tuple unless its key is there already (then false).
    bool insert(ListTuple* t) {
        if ((used + 1) * 2 > slots.size()) grow();
        const size_t h = keytext::hash(t->getKey());
        const size_t mask = slots.size() - 1;
        size_t i = h & mask;
        for (; slots[i].tuple != nullptr; i = (i + 1) & mask) {
            if (slots[i].hash == h && keytext::equal(slots[i].tuple->getKey(), t->getKey()))
                return false;
        }
        slots[i] = Slot{h, t};
        ++used;
        return true;
    }

    // Takes the tuple out when it is the one indexed for its key.
    bool erase(ListTuple* t) {
        if (used == 0) return false;
        const size_t mask = slots.size() - 1;
        size_t i = keytext::hash(t->getKey()) & mask;
        while (slots[i].tuple != t) {
            if (slots[i].tuple == nullptr) return false;
            i = (i + 1) & mask;
        }
        // Backward shift: move up every later slot of the run that may sit at `i`.
        for (size_t j = (i + 1) & mask; slots[j].tuple != nullptr; j = (j + 1) & mask) {
            size_t home = slots[j].hash & mask;
            bool between = i <= j ? (i < home && home <= j) : (i < home || home <= j);
            if (between) continue;
            slots[i] = slots[j];
            i = j;
        }
        slots[i] = Slot{0, nullptr};
        --used;
        return true;
    }

    void clear() {
        slots.clear();
        used = 0;
        duplicates = false;
    }

    void grow() {
        std::vector<Slot> old;
        old.swap(slots);
        slots.assign(old.empty() ? 16 : old.size() * 2, Slot{0, nullptr});
        const size_t mask = slots.size() - 1;
        for (const Slot& s : old) {
            if (s.tuple == nullptr) continue;
            size_t i = s.hash & mask;
            while (slots[i].tuple != nullptr)
                i = (i + 1) & mask;
            slots[i] = s;
        }
    }
};

// ---- ListTuple

ListTuple::ListTuple(const char* key, const char* value)
    : key_(keytext::copy(key)), value_(keytext::copy(value)) {}

ListTuple::~ListTuple() {
    delete[] key_;
    delete[] value_;
}

void ListTuple::setValue(const char* value) {
    if (value == nullptr) return;
    char* c = keytext::copy(value);
    delete[] value_;
    value_ = c;
}

int ListTuple::getIntValue(int def) {
    return keytext::toInt(value_, def);
}

bool ListTuple::getBooleanValue(bool def) {
    return keytext::toBoolean(value_, def);
}

int64_t ListTuple::getLongValue(int64_t def) {
    return keytext::toLong(value_, def);
}

// ---- ListMapIterator

ListMapIterator::ListMapIterator(ListMap* map) : pending_(map->head_), map_(map) {}

Map* ListMapIterator::getMap() {
    return map_;
}

bool ListMapIterator::hasNext() {
    return pending_ != nullptr || (current_ != nullptr && current_->next_ != nullptr);
}

void ListMapIterator::moveNext() {
    if (pending_ != nullptr) {
        current_ = pending_;
        pending_ = nullptr;
    } else if (current_ != nullptr) {
        current_ = current_->next_;
    }
}

char* ListMapIterator::getKey(char* buf, int size) {
    return keytext::fill(buf, size, current_ != nullptr ? current_->key_ : nullptr);
}

char* ListMapIterator::getValue(char* buf, int size) {
    return keytext::fill(buf, size, current_ != nullptr ? current_->value_ : nullptr);
}

int ListMapIterator::getIntValue(int def) {
    return current_ != nullptr ? current_->getIntValue(def) : def;
}

bool ListMapIterator::getBooleanValue(bool def) {
    return current_ != nullptr ? current_->getBooleanValue(def) : def;
}

int64_t ListMapIterator::getLongValue(int64_t def) {
    return current_ != nullptr ? current_->getLongValue(def) : def;
}

void ListMapIterator::deleteCurrent() {
    if (current_ == nullptr) return;
    pending_ = current_->next_;
    // Removes the first tuple with this key: the current one, or an earlier duplicate
    // that the walk has already passed; either way the walk goes on at `pending_`.
    map_->remove(current_->key_);
    current_ = nullptr;
}

// ---- ListMap

ListMap::ListMap() : ListMap(static_cast<MapStore*>(nullptr)) {}

ListMap::ListMap(MapStore* store)
    : Map(store != nullptr ? store : new NullMapStore()), index_(new Index) {
    // The default constructor loads nothing; a NullMapStore's load does nothing either.
    if (store != nullptr) store->load();
}

ListMap::~ListMap() {
    clear();
    delete index_;
}

ListTuple* ListMap::findTuple(const char* key) const {
    return index_->find(key);
}

void ListMap::notifyModified() {
    if (getStore() != nullptr) getStore()->setModified();
}

void ListMap::append(const char* key, const char* value) {
    if (key == nullptr || value == nullptr) return;
    MapLock hold(this);
    ListTuple* t = new ListTuple(key, value);
    // head_ is tested first: after clear() tail_ is stale and must not be followed.
    if (head_ == nullptr) {
        head_ = t;
    } else {
        tail_->next_ = t;
        t->prev_ = tail_;
    }
    tail_ = t;
    ++count_;
    if (!index_->insert(t)) index_->duplicates = true;
    notifyModified();
}

void ListMap::unlink(ListTuple* t) {
    if (t == tail_) tail_ = t->prev_;
    if (t->prev_ != nullptr) {
        t->prev_->next_ = t->next_;
    } else {
        head_ = t->next_;
    }
    if (t->next_ != nullptr) t->next_->prev_ = t->prev_;
    if (index_->erase(t) && index_->duplicates) {
        for (ListTuple* n = t->next_; n != nullptr; n = n->next_) {
            if (keytext::equal(n->key_, t->key_)) {
                index_->insert(n);
                break;
            }
        }
    }
}

void ListMap::clear() {
    MapLock hold(this);
    if (head_ != nullptr) notifyModified();
    index_->clear();
    while (head_ != nullptr) {
        ListTuple* next = head_->next_;
        delete head_;
        head_ = next;
    }
    // kept: count_ and tail_ stay as they were; callers rely on getSize() reporting the
    // former number after clear(), and append() never reads tail_ while head_ is null.
}

MapStore* ListMap::getStore() {
    return Map::getStore();
}

char* ListMap::get(const char* key, char* buf, int size, const char* def) {
    MapLock hold(this);
    ListTuple* t = key != nullptr ? findTuple(key) : nullptr;
    return keytext::fill(buf, size, t != nullptr ? t->value_ : def);
}

void ListMap::get(const char* key, char** out, const char* def) {
    if (out == nullptr) return;
    MapLock hold(this);
    ListTuple* t = key != nullptr ? findTuple(key) : nullptr;
    const char* v = t != nullptr ? t->value_ : def;
    *out = v != nullptr ? keytext::copyBlock(v) : nullptr;
}

// The typed getters lock too, although a plain list walk could do without: the index may
// be rehashed by a writer in another thread, and reading it unlocked meanwhile could
// follow freed memory. The lock is re-entrant, so nothing changes for a single thread.
int ListMap::getInt(const char* key, int def) {
    if (key == nullptr) return def;
    MapLock hold(this);
    ListTuple* t = findTuple(key);
    return t != nullptr ? t->getIntValue(def) : def;
}

int64_t ListMap::getLong(const char* key, int64_t def) {
    if (key == nullptr) return def;
    MapLock hold(this);
    ListTuple* t = findTuple(key);
    return t != nullptr ? t->getLongValue(def) : def;
}

bool ListMap::getBoolean(const char* key, bool def) {
    if (key == nullptr) return def;
    MapLock hold(this);
    ListTuple* t = findTuple(key);
    return t != nullptr ? t->getBooleanValue(def) : def;
}

void ListMap::copyAll(Map* from) {
    if (from == nullptr) return;
    MapLock hold(this);
    if (ListMap* list = dynamic_cast<ListMap*>(from)) {
        // Another list map: its texts are taken whole, whatever their length.
        for (ListTuple* t = list->head_; t != nullptr; t = t->next_)
            set(t->key_, t->value_);
        return;
    }
    // Any other map goes through its iterator with 1024-byte texts; the extra byte keeps
    // a longer text terminated (cut) instead of read past the buffer.
    char key[1025];
    char value[1025];
    MapIterator* it = from->makeIterator();
    while (it != nullptr && it->hasNext()) {
        it->moveNext();
        it->getKey(key, 1024);
        it->getValue(value, 1024);
        key[1024] = value[1024] = '\0';
        set(key, value);
    }
    delete it;
}

void ListMap::set(const char* key, const char* value) {
    if (key == nullptr || value == nullptr) return;
    MapLock hold(this);
    ListTuple* t = findTuple(key);
    if (t == nullptr) {
        append(key, value);
    } else {
        // The tuple keeps its place and the spelling it was first stored with.
        t->setValue(value);
        notifyModified();
    }
}

void ListMap::setInt(const char* key, int value) {
    char buf[32];
    keytext::formatInt(buf, value);
    set(key, buf);
}

void ListMap::setBoolean(const char* key, bool value) {
    set(key, value ? "true" : "false");
}

void ListMap::setLong(const char* key, int64_t value) {
    char buf[32];
    keytext::formatLong(buf, value);
    set(key, buf);
}

bool ListMap::remove(const char* key) {
    if (key == nullptr) return false;
    MapLock hold(this);
    ListTuple* t = findTuple(key);
    if (t == nullptr) return false;
    unlink(t);
    delete t;  // `key` may be this tuple's own text: not used from here on
    notifyModified();
    --count_;
    return true;
}

bool ListMap::containsKey(const char* key) {
    if (key == nullptr) return false;
    MapLock hold(this);
    return findTuple(key) != nullptr;
}

int ListMap::getSize() {
    return count_;
}

void ListMap::lock() {
    if (getStore() != nullptr) getStore()->lock();
}

void ListMap::unlock() {
    if (getStore() != nullptr) getStore()->unlock();
}

MapIterator* ListMap::makeIterator() {
    return new ListMapIterator(this);
}

Map* ListMap::newCopy(MapStore* store) {
    ListMap* copy = new ListMap(store != nullptr ? store : new NullMapStore());
    // Appended without the duplicate check: what the store loaded comes first and wins
    // lookups, this map's entries follow.
    for (ListTuple* t = head_; t != nullptr; t = t->next_)
        copy->append(t->key_, t->value_);
    return copy;
}

Map* ListMap::newCopy() {
    return newCopy(new NullMapStore());
}

}  // namespace velmora
