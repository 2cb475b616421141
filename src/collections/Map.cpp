#include <velmora/collections/Map.h>
#include <velmora/text/Release.h>

namespace velmora {

MapTuple::~MapTuple() = default;
MapIterator::~MapIterator() = default;
MapStore::~MapStore() = default;

Map::Map(MapStore* store) : store_(store) {
    if (store_ != nullptr) store_->map_ = this;
}

Map::~Map() {
    delete store_;
}

void Map::freeValue(char* value) {
    release(value);
}

}  // namespace velmora
