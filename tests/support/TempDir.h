// A fresh directory under the system's temporary folder, removed with everything in it
// when the object goes.
#pragma once

#include <string>

namespace velmora {
namespace test {

class TempDir {
public:
    TempDir();
    ~TempDir();
    const std::string& path() const { return path_; }
    // The directory joined with a relative name, with "/" as separator.
    std::string file(const std::string& name) const { return path_ + "/" + name; }

private:
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    std::string path_;
};

// Writes `content` to `path` in binary mode; false on failure.
bool writeFile(const std::string& path, const std::string& content);
// The whole file, or "" when it cannot be read.
std::string readFile(const std::string& path);

}  // namespace test
}  // namespace velmora
