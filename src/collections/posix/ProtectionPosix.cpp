#include "collections/Protection.h"

namespace velmora {
namespace protection {

// No system data-protection service here: values are written in clear, and a protected
// value made on another system cannot be recovered.
bool protect(const char*, std::string*) {
    return false;
}

bool unprotect(const char*, std::string*) {
    return false;
}

}  // namespace protection
}  // namespace velmora
