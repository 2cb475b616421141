#include <velmora/collections/Map.h>

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
    delete[] value;
}

}  // namespace velmora
