#include "net/OsVersionSource.h"

#include "net/NetSystem.h"

namespace velmora {

namespace {
bool overridden = false;
int givenPlatform = 0;
int givenMajor = 0;
}  // namespace

void OsVersionSource::get(int* platform, int* major) {
    if (overridden) {
        *platform = givenPlatform;
        *major = givenMajor;
        return;
    }
    netsys::systemVersion(platform, major);
}

void OsVersionSource::set(int platform, int major) {
    givenPlatform = platform;
    givenMajor = major;
    overridden = true;
}

void OsVersionSource::reset() {
    overridden = false;
}

}  // namespace velmora
