#include <velmora/log/FilteredLogBundle.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>

#include <velmora/collections/PropertiesFile.h>

namespace velmora {

namespace {

bool sameName(const char* a, const char* b) {
    for (; *a != '\0' && *b != '\0'; a++, b++) {
        char x = (*a >= 'A' && *a <= 'Z') ? static_cast<char>(*a - 'A' + 'a') : *a;
        char y = (*b >= 'A' && *b <= 'Z') ? static_cast<char>(*b - 'A' + 'a') : *b;
        if (x != y) return false;
    }
    return *a == *b;
}

// Reads a decimal level as atoi does: leading blanks and a sign, then digits; no number
// reads as 0.
int parseLevel(const char* s) {
    return static_cast<int>(std::strtol(s, nullptr, 10));
}

// Holds the bundle's mutex for one scope.
class Guard {
public:
    explicit Guard(PlatformMutex* m) : m_(m) { PlatformUtil::lockMutex(m_); }
    ~Guard() { PlatformUtil::unlockMutex(m_); }

private:
    PlatformMutex* m_;
};

}  // namespace

FilteredLogRec* FilteredLogIterator::getNext() {
    if (bundle_ == nullptr) return nullptr;
    Guard guard(&bundle_->mutex_);
    FilteredLogRec* rec = current_;
    if (rec != nullptr) current_ = rec->next_;
    return rec;
}

FilteredLogBundle::FilteredLogBundle(const char* path, Log* log) : log_(log) {
    // The map loads the file as it is made; a missing file leaves it empty.
    map_ = PropertiesFile::makeMap(path, '=');
    PlatformUtil::createMutex(&mutex_);
    if (map_ == nullptr) return;
    Guard guard(&mutex_);
    std::unique_ptr<MapIterator> it(map_->makeIterator());
    while (it != nullptr && it->hasNext()) {
        it->moveNext();
        // Names and values are cut to 63 characters, always terminated.
        char name[64];
        char value[64];
        it->getKey(name, sizeof name - 1);
        it->getValue(value, sizeof value - 1);
        name[63] = '\0';
        value[63] = '\0';
        FilteredLog* named = get(name);
        if (named != nullptr) named->setFilterLevel(parseLevel(value));
    }
}

FilteredLogBundle::~FilteredLogBundle() {
    PlatformUtil::lockMutex(&mutex_);
    delete map_;
    map_ = nullptr;
    while (records_ != nullptr) {
        FilteredLogRec* next = records_->next_;
        std::free(records_->name_);
        delete records_->log_;
        delete records_;
        records_ = next;
    }
    PlatformUtil::destroyMutex(&mutex_);
}

FilteredLog* FilteredLogBundle::get(const char* name) {
    if (name == nullptr) return nullptr;
    Guard guard(&mutex_);
    FilteredLogRec** tail = &records_;
    for (; *tail != nullptr; tail = &(*tail)->next_) {
        if (sameName((*tail)->name_, name)) return (*tail)->log_;
    }
    FilteredLogRec* rec = new (std::nothrow) FilteredLogRec;
    if (rec == nullptr) return nullptr;
    size_t n = std::strlen(name) + 1;
    rec->name_ = static_cast<char*>(std::malloc(n));
    rec->log_ = forceLevel_ < 0 ? new (std::nothrow) FilteredLog(log_)
                                : new (std::nothrow) FilteredLog(log_, forceLevel_);
    if (rec->name_ == nullptr || rec->log_ == nullptr) {
        std::free(rec->name_);
        delete rec->log_;
        delete rec;
        return nullptr;
    }
    std::memcpy(rec->name_, name, n);
    *tail = rec;
    return rec->log_;
}

void FilteredLogBundle::forceLevel(int level) {
    // Kept: a negative level cannot lift a forced one, so that an override set for the
    // whole run is never undone by a part of the program.
    if (level < 0) return;
    Guard guard(&mutex_);
    forceLevel_ = level;
    for (FilteredLogRec* rec = records_; rec != nullptr; rec = rec->next_) {
        rec->log_->setFilterLevel(level);
    }
}

bool FilteredLogBundle::save() {
    Guard guard(&mutex_);
    // A forced level is a temporary override: it must never reach the file.
    if (forceLevel_ >= 0 || map_ == nullptr) return false;
    for (FilteredLogRec* rec = records_; rec != nullptr; rec = rec->next_) {
        map_->setInt(rec->name_, rec->log_->getFilterLevel());
    }
    map_->getStore()->save();
    saveTime_ = static_cast<int64_t>(std::time(nullptr));
    return true;
}

void FilteredLogBundle::getIterator(FilteredLogIterator* it) {
    if (it == nullptr) return;
    it->bundle_ = this;
    Guard guard(&mutex_);
    it->current_ = records_;
}

}  // namespace velmora
