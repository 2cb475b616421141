// The parts of the host settings that every system shares: the adapter list it owns, the
// file paths, and the platform's IPv6 use flag kept in <home>/lib/system.properties. The
// system's own operations live in src/tcpip/<system>/.
#include <velmora/tcpip/TcpIpHostSettings.h>

#include <velmora/collections/Map.h>
#include <velmora/collections/PropertiesFile.h>
#include <velmora/files/FileUtil.h>
#include <velmora/log/ErrorHandler.h>
#include <velmora/log/MessageBundle.h>
#include <velmora/tcpip/TcpIpAdapterSettings.h>
#include <velmora/vre/Vre.h>
#include <velmora/vre/VreCore.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

namespace velmora {

namespace {

TcpIpHostSettings* instance = nullptr;

const char kIpv6Key[] = "velmora.ipv6Enabled";

void copyPath(char* dst, const char* src) {
    std::snprintf(dst, 260, "%s", src != nullptr ? src : "");
}

std::string systemPropertiesPath() {
    const char* home = Vre::getInstance()->getKovaHome();
    return std::string(home != nullptr ? home : ".") + "/lib/system.properties";
}

}  // namespace

// Made by the system's own file (src/tcpip/<system>/): a host filled from the system.
TcpIpHostSettings* makeSystemHostSettings(ErrorHandler* err);

TcpIpHostSettings* TcpIpHostSettings::getInstance(ErrorHandler* err) {
    if (instance == nullptr) instance = makeSystemHostSettings(err);
    return instance;
}

void TcpIpHostSettings::unload() {
    delete instance;
    instance = nullptr;
}

TcpIpHostSettings::TcpIpHostSettings() {
    copyPath(resolverPath_, "/etc/resolv.conf");
    copyPath(hostnamePath_, "/etc/hostname");
}

TcpIpHostSettings::~TcpIpHostSettings() {
    setAdapters(nullptr, 0);
}

TcpIpAdapterSettings** TcpIpHostSettings::getAllAdapterSettings(ErrorHandler* err, int* count) {
    refreshAdapters(err);
    if (count != nullptr) *count = count_;
    return adapters_;
}

TcpIpAdapterSettings* TcpIpHostSettings::getAdapterSettings(ErrorHandler* err, const char* id) {
    refreshAdapters(err);
    if (id == nullptr) return nullptr;
    for (int i = 0; i < count_; ++i) {
        if (std::strcmp(adapters_[i]->id(), id) == 0) return adapters_[i];
    }
    return nullptr;
}

void TcpIpHostSettings::setAdapters(TcpIpAdapterSettings** adapters, int count) {
    for (int i = 0; i < count_; ++i)
        delete adapters_[i];
    delete[] adapters_;
    adapters_ = adapters;
    count_ = adapters != nullptr && count > 0 ? count : 0;
}

void TcpIpHostSettings::setResolverPath(const char* path) {
    copyPath(resolverPath_, path);
}

void TcpIpHostSettings::setHostnamePath(const char* path) {
    copyPath(hostnamePath_, path);
}

// A missing file or key means the platform does not use IPv6.
bool TcpIpHostSettings::getVelmoraUsesIpv6(ErrorHandler*) {
    std::unique_ptr<Map> props(PropertiesFile::makeMap(systemPropertiesPath().c_str(), '='));
    return props != nullptr && props->getBoolean(kIpv6Key, false);
}

int TcpIpHostSettings::setVelmoraUsesIpv6(ErrorHandler* err, bool on) {
    std::string path = systemPropertiesPath();
    std::unique_ptr<Map> props(PropertiesFile::makeMap(path.c_str(), '='));
    bool saved = false;
    if (props != nullptr) {
        props->setBoolean(kIpv6Key, on);
        saved = FileUtil::verifyPath(path.c_str()) && props->getStore()->save();
    }
    if (saved) return 0;
    std::string text = "TcpIpHostSettings::setVelmoraUsesIpv6 - unable to update " + path;
    if (err != nullptr) err->error(text.c_str());
    return -1;
}

}  // namespace velmora
