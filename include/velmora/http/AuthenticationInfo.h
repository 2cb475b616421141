// The record of an authenticated user that a request carries. The authentication
// services derive their records from it; a request deletes its record through this base.
#pragma once

#include <velmora/Export.h>

namespace velmora {

class VELMORA_API AuthenticationInfo {
public:
    virtual ~AuthenticationInfo();
};

}  // namespace velmora
