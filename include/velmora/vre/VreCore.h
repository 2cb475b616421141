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

    // The MD5 digest (RFC 1321) of `length` bytes at `data` into the 16 bytes at `digest`.
    // Returns false, with `digest` unchanged, when `length` is negative, `data` is null with
    // a positive length, or a core cannot compute it.
    virtual bool digestMD5(const unsigned char* data, int length, unsigned char digest[16]);

    // This host's name for IPv4 or IPv6 use, written zero-terminated into `name` of `size`
    // bytes (the library passes 128). The default core answers the system's host name when
    // it resolves to an address of that family. Returns 0, or -1 when there is no such name
    // or it does not fit; on -1 `name` holds an empty text when `size` allows.
    virtual int getHostNameIpv4(char* name, int size);
    virtual int getHostNameIpv6(char* name, int size);

private:
    VreCore(const VreCore&) = delete;
    VreCore& operator=(const VreCore&) = delete;

    char* home_ = nullptr;
};

}  // namespace velmora
