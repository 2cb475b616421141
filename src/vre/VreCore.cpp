#include <velmora/vre/Vre.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>

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
