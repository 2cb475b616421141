#include <velmora/collections/KeyedList.h>

#include "collections/KeyText.h"

namespace velmora {

namespace {

class ListLock {
public:
    explicit ListLock(KeyedList* list) : list_(list) { list_->lock(); }
    ~ListLock() { list_->unlock(); }

private:
    KeyedList* list_;
};

}  // namespace

KeyedList::KeyedList() = default;

KeyedList::~KeyedList() {
    // A list never locked has no mutex, and nobody to wait for.
    PlatformMutex m = mutex_.load(std::memory_order_acquire);
    if (m != nullptr) lock();
    freeAll(head_);
    head_ = nullptr;
    freeAll(detached_);
    if (m != nullptr) PlatformUtil::destroyMutex(&m);
}

PlatformMutex KeyedList::makeMutex() {
    PlatformMutex fresh = nullptr;
    PlatformUtil::createMutex(&fresh);
    PlatformMutex expected = nullptr;
    if (mutex_.compare_exchange_strong(expected, fresh, std::memory_order_acq_rel)) return fresh;
    // Another thread made it first.
    PlatformUtil::destroyMutex(&fresh);
    return expected;
}

void KeyedList::freeAll(ListTuple* t) {
    while (t != nullptr) {
        ListTuple* next = t->next_;
        delete t;
        t = next;
    }
}

void KeyedList::lock() {
    PlatformMutex m = mutex_.load(std::memory_order_acquire);
    if (m == nullptr) m = makeMutex();
    PlatformUtil::lockMutex(&m);
}

void KeyedList::unlock() {
    PlatformMutex m = mutex_.load(std::memory_order_acquire);
    PlatformUtil::unlockMutex(&m);
}

// Positions at or past the count are refused by the callers; the walk still stops at the
// end of the list, since remove() and clear() leave the count higher than the entries.
ListTuple* KeyedList::at(int i) const {
    if (i < 0) return nullptr;
    ListTuple* t = head_;
    for (; t != nullptr && i > 0; --i)
        t = t->next_;
    return t;
}

ListTuple* KeyedList::find(const char* key) const {
    if (key == nullptr) return nullptr;
    for (ListTuple* t = head_; t != nullptr; t = t->next_) {
        if (keytext::equal(t->key_, key)) return t;
    }
    return nullptr;
}

void KeyedList::add(const char* key, const char* value) {
    if (key == nullptr || value == nullptr) return;
    ListLock hold(this);
    ListTuple* t = new ListTuple(key, value);
    // head_ first: after clear() tail_ is stale.
    if (head_ == nullptr) {
        head_ = t;
    } else {
        tail_->next_ = t;
    }
    tail_ = t;
    ++count_;
    modified_ = true;
}

void KeyedList::addInt(const char* key, int value) {
    char buf[32];
    keytext::formatInt(buf, value);
    add(key, buf);
}

void KeyedList::addLong(const char* key, int64_t value) {
    char buf[32];
    keytext::formatLong(buf, value);
    add(key, buf);
}

void KeyedList::addBoolean(const char* key, bool value) {
    add(key, value ? "true" : "false");
}

void KeyedList::set(int i, const char* value) {
    if (value == nullptr || i >= count_) return;
    ListLock hold(this);
    ListTuple* t = at(i);
    if (t == nullptr) return;
    t->setValue(value);
    modified_ = true;
}

void KeyedList::setInt(int i, int value) {
    char buf[32];
    keytext::formatInt(buf, value);
    set(i, buf);
}

void KeyedList::setLong(int i, int64_t value) {
    char buf[32];
    keytext::formatLong(buf, value);
    set(i, buf);
}

void KeyedList::setBoolean(int i, bool value) {
    set(i, value ? "true" : "false");
}

char* KeyedList::get(const char* key, char* buf, int size, const char* def) {
    ListLock hold(this);
    ListTuple* t = find(key);
    return keytext::fill(buf, size, t != nullptr ? t->value_ : def);
}

void KeyedList::get(const char* key, char** out, const char* def) {
    if (out == nullptr) return;
    ListLock hold(this);
    ListTuple* t = find(key);
    const char* v = t != nullptr ? t->value_ : def;
    *out = v != nullptr ? keytext::copyBlock(v) : nullptr;
}

char* KeyedList::getAtIndex(int i, char* buf, int size) {
    if (buf == nullptr || size <= 0) return buf;
    if (i >= count_) {
        buf[0] = '\0';
        return buf;
    }
    ListLock hold(this);
    ListTuple* t = at(i);
    return keytext::fill(buf, size, t != nullptr ? t->value_ : nullptr);
}

char* KeyedList::getKey(int i, char* buf, int size) {
    if (buf == nullptr || size <= 0) return buf;
    if (i >= count_) {
        buf[0] = '\0';
        return buf;
    }
    ListLock hold(this);
    ListTuple* t = at(i);
    return keytext::fill(buf, size, t != nullptr ? t->key_ : nullptr);
}

int KeyedList::keyCount(const char* key) {
    if (key == nullptr) return 0;
    ListLock hold(this);
    int n = 0;
    for (ListTuple* t = head_; t != nullptr; t = t->next_) {
        if (keytext::equal(t->key_, key)) ++n;
    }
    return n;
}

// The typed getters lock as well: an unlocked walk could meet an entry that another thread
// is freeing. The lock is re-entrant, so one thread sees no difference.
int KeyedList::getInt(const char* key, int def) {
    ListLock hold(this);
    ListTuple* t = find(key);
    return t != nullptr ? t->getIntValue(def) : def;
}

int64_t KeyedList::getLong(const char* key, int64_t def) {
    ListLock hold(this);
    ListTuple* t = find(key);
    return t != nullptr ? t->getLongValue(def) : def;
}

bool KeyedList::getBoolean(const char* key, bool def) {
    ListLock hold(this);
    ListTuple* t = find(key);
    return t != nullptr ? t->getBooleanValue(def) : def;
}

int KeyedList::getIntAtIndex(int i) {
    if (i >= count_) return -1;
    ListLock hold(this);
    ListTuple* t = at(i);
    return t != nullptr ? t->getIntValue(-1) : -1;
}

int64_t KeyedList::getLongAtIndex(int i) {
    if (i >= count_) return -1;
    ListLock hold(this);
    ListTuple* t = at(i);
    return t != nullptr ? t->getLongValue(-1) : -1;
}

bool KeyedList::getBooleanAtIndex(int i) {
    if (i >= count_) return false;
    ListLock hold(this);
    ListTuple* t = at(i);
    return t != nullptr && t->getBooleanValue(false);
}

void KeyedList::remove(int i) {
    if (i < 0 || i >= count_) return;
    ListLock hold(this);
    ListTuple* prev = i > 0 ? at(i - 1) : nullptr;
    ListTuple* t = i > 0 ? (prev != nullptr ? prev->next_ : nullptr) : head_;
    if (t == nullptr) return;
    if (prev != nullptr) {
        prev->next_ = t->next_;
    } else {
        head_ = t->next_;
    }
    if (t == tail_) tail_ = prev;
    delete t;
    // kept: count_ stays as it was; callers know not to address the last position again.
}

bool KeyedList::removeAll(const char* key) {
    if (key == nullptr) return false;
    ListLock hold(this);
    bool removed = false;
    ListTuple* prev = nullptr;
    ListTuple* t = head_;
    while (t != nullptr) {
        ListTuple* next = t->next_;
        if (keytext::equal(t->key_, key)) {
            if (prev != nullptr) {
                prev->next_ = next;
            } else {
                head_ = next;
            }
            if (t == tail_) tail_ = prev;
            delete t;
            --count_;
            removed = true;
        } else {
            prev = t;
        }
        t = next;
    }
    return removed;
}

void KeyedList::clear() {
    ListLock hold(this);
    freeAll(head_);
    head_ = nullptr;
    // kept: count_ and tail_ stay, as with ListMap::clear(); add() tests head_ first.
}

void KeyedList::reset() {
    ListLock hold(this);
    freeAll(head_);
    head_ = tail_ = nullptr;
    count_ = 0;
}

KeyedList* KeyedList::duplicateDeep() {
    ListLock hold(this);
    KeyedList* copy = new KeyedList();
    ListTuple* first = head_;
    while (head_ != nullptr) {
        ListTuple* t = head_;
        head_ = t->next_;  // kept: the walk consumes this list's head
        copy->add(t->key_, t->value_);
    }
    // The detached entries are no longer reachable through this list; they are kept
    // aside and freed with it, so that nothing leaks.
    if (first != nullptr) {
        ListTuple* last = first;
        while (last->next_ != nullptr)
            last = last->next_;
        last->next_ = detached_;
        detached_ = first;
    }
    return copy;
}

}  // namespace velmora
