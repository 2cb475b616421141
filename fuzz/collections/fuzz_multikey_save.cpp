// Loads arbitrary bytes as a multi-key properties file with a separator chosen by the
// first byte, saves the list back over it and loads the saved file into a second list:
// both must hold the same keys and values in the same order, and a second save must leave
// the file's bytes as the first save wrote them.
#include <velmora/collections/MultiKeyPropertiesFile.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "support/ScratchFile.h"

using namespace velmora;

namespace {

std::vector<std::pair<std::string, std::string>> entries(MultiKeyPropertiesFile& f) {
    std::vector<std::pair<std::string, std::string>> out;
    std::vector<char> k(4096), v(4096);
    for (int i = 0; i < f.getCount(); ++i)
        out.emplace_back(f.getKey(i, k.data(), 4095), f.getAtIndex(i, v.data(), 4095));
    return out;
}

std::string bytesOf(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    // Separators a file could use; the line-end bytes and NUL cannot separate anything.
    static const char kSeparators[] = "=:; \t,|#";
    const char separator = kSeparators[data[0] % (sizeof kSeparators - 1)];
    const std::string& path = fuzzing::scratchPath("multikey");
    if (!fuzzing::writeScratch(path, data + 1, size - 1)) return 0;
    MultiKeyPropertiesFile first(path.c_str(), separator);
    if (!first.load() || !first.save()) std::abort();
    const std::string saved = bytesOf(path);
    MultiKeyPropertiesFile second(path.c_str(), separator);
    if (!second.load()) std::abort();
    if (entries(first) != entries(second)) std::abort();
    if (!second.save() || bytesOf(path) != saved) std::abort();
    std::remove(path.c_str());
    return 0;
}
