// Access to the process's runtime core. The first getInstance() makes the default core
// unless an embedding process installed its own with setInstance() before.
//
//   velmora::Vre::getInstance()->getKovaHome();
#pragma once

#include <velmora/vre/VreCore.h>

namespace velmora {

class VELMORA_VRE_API Vre {
public:
    // The installed core; made on first use, without a lock (call it before starting threads).
    static VreCore* getInstance();
    // Installs the embedding process's core and returns the previous one, which the caller
    // then owns (null when none was made yet). Passing null brings back the default core.
    static VreCore* setInstance(VreCore* core);
    // Deletes the installed core.
    static void unload();
};

}  // namespace velmora
