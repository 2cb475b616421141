#include <velmora/vre/Vre.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>

#include "vre/HostName.h"
#include "vre/Md5.h"

namespace velmora {

namespace {

char* copyText(const std::string& s) {
    char* out = static_cast<char*>(std::malloc(s.size() + 1));
    if (out != nullptr) std::memcpy(out, s.c_str(), s.size() + 1);
    return out;
}

VreCore* instance = nullptr;

}  // namespace

VreCore::VreCore() = default;

VreCore::~VreCore() {
    std::free(home_);
}

const char* VreCore::getKovaHome() {
    if (home_ == nullptr) {
        const char* env = std::getenv("VELMORA_HOME");
        if (env != nullptr && env[0] != '\0') {
            home_ = copyText(env);
        } else {
            std::error_code ec;
            std::string cwd = std::filesystem::current_path(ec).string();
            home_ = copyText(ec ? std::string(".") : cwd);
        }
    }
    return home_ != nullptr ? home_ : ".";
}

bool VreCore::digestMD5(const unsigned char* data, int length, unsigned char digest[16]) {
    if (length < 0 || digest == nullptr || (data == nullptr && length > 0)) return false;
    vre::md5(data, static_cast<size_t>(length), digest);
    return true;
}

namespace {

int hostName(bool ipv6, char* name, int size) {
    if (name == nullptr || size <= 0) return -1;
    if (vre::queryHostName(ipv6, name, size) == 0) return 0;
    name[0] = '\0';
    return -1;
}

}  // namespace

int VreCore::getHostNameIpv4(char* name, int size) {
    return hostName(false, name, size);
}

int VreCore::getHostNameIpv6(char* name, int size) {
    return hostName(true, name, size);
}

VreCore* Vre::getInstance() {
    if (instance == nullptr) instance = new VreCore();
    return instance;
}

VreCore* Vre::setInstance(VreCore* core) {
    VreCore* previous = instance;
    instance = core;
    return previous;
}

void Vre::unload() {
    delete instance;
    instance = nullptr;
}

}  // namespace velmora
