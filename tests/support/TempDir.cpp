#include "support/TempDir.h"

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace velmora {
namespace test {

namespace {
std::atomic<int> counter{0};
}

TempDir::TempDir() {
    namespace fsys = std::filesystem;
    auto stamp = std::chrono::steady_clock::now().time_since_epoch().count();
    fsys::path p = fsys::temp_directory_path() /
                   ("velmora-test-" + std::to_string(stamp) + "-" + std::to_string(counter++));
    fsys::create_directories(p);
    path_ = p.generic_string();
}

TempDir::~TempDir() {
    std::error_code ec;
    // Read-only files and folders left by a test must not stop the clean-up.
    for (auto& e : std::filesystem::recursive_directory_iterator(path_, ec)) {
        std::filesystem::permissions(e.path(), std::filesystem::perms::owner_all,
                                     std::filesystem::perm_options::add, ec);
    }
    std::filesystem::remove_all(path_, ec);
}

bool writeFile(const std::string& path, const std::string& content) {
    std::ofstream out(path, std::ios::binary);
    out << content;
    return static_cast<bool>(out);
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

}  // namespace test
}  // namespace velmora
