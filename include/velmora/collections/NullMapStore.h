// The store that persists nothing: load and save succeed and do nothing; it only
// supplies the map's re-entrant lock.
//
//   velmora::Map* m = velmora::NullMapStore::makeMap();
//   m->set("a", "1");
//   delete m;
#pragma once

#include <velmora/collections/Map.h>
#include <velmora/platform/PlatformUtil.h>

namespace velmora {

class VELMORA_API NullMapStore : public MapStore {
public:
    NullMapStore();
    ~NullMapStore() override;  // locks the mutex, then destroys it while holding it
    bool load() override { return true; }
    bool save() override { return true; }
    bool isModified() override { return false; }
    void lock() override;
    void unlock() override;
    void setModified() override {}

    // A new ListMap bound to a new NullMapStore; the caller owns it.
    static Map* makeMap();

private:
    PlatformMutex mutex_ = nullptr;
};

}  // namespace velmora
