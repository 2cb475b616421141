// Loads arbitrary bytes as a properties file, saves the map back over it, loads the saved
// file into a second map: both maps must hold the same entries in the same order.
#include <velmora/collections/ListMap.h>
#include <velmora/collections/PropertiesFile.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "support/ScratchFile.h"

using namespace velmora;

namespace {

std::vector<std::pair<std::string, std::string>> entries(Map& m) {
    std::vector<std::pair<std::string, std::string>> out;
    std::unique_ptr<MapIterator> it(m.makeIterator());
    std::vector<char> k(2048), v(2048);
    while (it->hasNext()) {
        it->moveNext();
        it->getKey(k.data(), 2047);
        it->getValue(v.data(), 2047);
        out.emplace_back(k.data(), v.data());
    }
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string& path = fuzzing::scratchPath("props");
    if (!fuzzing::writeScratch(path, data, size)) return 0;
    std::unique_ptr<Map> first(PropertiesFile::makeMap(path.c_str(), '='));
    if (!first->getStore()->save()) std::abort();
    std::unique_ptr<Map> second(PropertiesFile::makeMap(path.c_str(), '='));
    if (entries(*first) != entries(*second)) std::abort();
    std::remove(path.c_str());
    return 0;
}
