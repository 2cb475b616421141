// Named filtered logs that all write to one target, with their levels kept in a
// properties file of "name=level" lines. Names match without regard to letter case.
//
//   velmora::FilteredLogBundle levels("conf/log.properties", fileLog);
//   velmora::FilteredLog* http = levels.get("http");  // level from the file, else 1
//   http->setFilterLevel(0);
//   levels.save();                                    // writes http=0
#pragma once

#include <cstdint>

#include <velmora/collections/Map.h>
#include <velmora/log/FilteredLog.h>
#include <velmora/platform/PlatformUtil.h>

namespace velmora {

class FilteredLogBundle;

// One named log of a bundle; the bundle owns it.
class VELMORA_API FilteredLogRec {
public:
    const char* getName() const { return name_; }
    FilteredLog* getLog() const { return log_; }

private:
    friend class FilteredLogBundle;
    friend class FilteredLogIterator;
    FilteredLogRec() = default;
    char* name_ = nullptr;
    FilteredLog* log_ = nullptr;
    FilteredLogRec* next_ = nullptr;
};

// Walks the logs of a bundle in the order they were made.
//   velmora::FilteredLogIterator it;
//   levels.getIterator(&it);
//   while (it.hasNext()) { velmora::FilteredLogRec* r = it.getNext(); ... }
class VELMORA_API FilteredLogIterator {
public:
    FilteredLogIterator() = default;  // at end
    bool hasNext() const { return current_ != nullptr; }
    // The current record, then moves on; null at end.
    FilteredLogRec* getNext();

private:
    friend class FilteredLogBundle;
    FilteredLogRec* current_ = nullptr;
    FilteredLogBundle* bundle_ = nullptr;
};

class VELMORA_API FilteredLogBundle {
public:
    // Loads the levels file (a missing or unreadable file leaves the bundle empty) and
    // makes a log for each of its names, cut to 63 characters. A value that is no number
    // reads as level 0.
    FilteredLogBundle(const char* path, Log* log);
    // Does not save.
    ~FilteredLogBundle();

    // The log of that name, made at level 1 (or the forced level) when it is new.
    FilteredLog* get(const char* name);
    // Sets every log, present and future, to `level`. A negative level is ignored: once
    // forced, a level stays forced for the bundle's life.
    void forceLevel(int level);
    int getForceLevel() const { return forceLevel_; }
    // Writes every log's level to the file; false, writing nothing, while a level is forced.
    bool save();
    // Seconds since 1970 of the last save, 0 before the first.
    int64_t getSaveTime() const { return saveTime_; }
    void getIterator(FilteredLogIterator* it);

private:
    FilteredLogBundle(const FilteredLogBundle&) = delete;
    FilteredLogBundle& operator=(const FilteredLogBundle&) = delete;
    friend class FilteredLogIterator;

    Log* log_;
    Map* map_ = nullptr;
    FilteredLogRec* records_ = nullptr;
    PlatformMutex mutex_ = nullptr;
    int forceLevel_ = -1;
    int64_t saveTime_ = 0;
};

}  // namespace velmora
