// The runtime core of the platform: the services that the common library asks of the
// process it runs in. The default core answers from the environment; an embedding process
// that has its own core derives from VreCore and installs it with Vre::setInstance.
//
//   const char* home = velmora::Vre::getInstance()->getKovaHome();
#pragma once

#include <velmora/vre/VreExport.h>

namespace velmora {

class VELMORA_VRE_API VreCore {
public:
    VreCore();
    virtual ~VreCore();

    // The platform home directory: the environment variable VELMORA_HOME when it is set
    // and not empty, else the current directory at the time of the first call. The text
    // belongs to the core and stays valid for its lifetime.
    virtual const char* getKovaHome();

private:
    VreCore(const VreCore&) = delete;
    VreCore& operator=(const VreCore&) = delete;

    char* home_ = nullptr;
};

}  // namespace velmora
