#include <velmora/collections/ListMap.h>
#include <velmora/collections/NullMapStore.h>

namespace velmora {

NullMapStore::NullMapStore() {
    PlatformUtil::createMutex(&mutex_);
}

NullMapStore::~NullMapStore() {
    // Taken first so that no other thread is inside the map while the lock goes away.
    PlatformUtil::lockMutex(&mutex_);
    PlatformUtil::destroyMutex(&mutex_);
}

void NullMapStore::lock() {
    PlatformUtil::lockMutex(&mutex_);
}

void NullMapStore::unlock() {
    PlatformUtil::unlockMutex(&mutex_);
}

Map* NullMapStore::makeMap() {
    return new ListMap(new NullMapStore());
}

}  // namespace velmora
