#include <velmora/text/Release.h>

#include <cstdlib>

namespace velmora {

// Every block the library hands out for its caller to give back comes from malloc.
void release(void* block) {
    std::free(block);
}

}  // namespace velmora
