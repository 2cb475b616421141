#include <velmora/files/DirectoryListing.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "files/FileSystem.h"

namespace velmora {

namespace {

char* copyText(const char* s) {
    size_t n = std::strlen(s) + 1;
    char* out = static_cast<char*>(std::malloc(n));
    if (out != nullptr) std::memcpy(out, s, n);
    return out;
}

}  // namespace

DirectoryEntry::DirectoryEntry(const char* name, const char* path, bool directory, int64_t size,
                               int64_t modified)
    : name_(copyText(name != nullptr ? name : "")),
      path_(copyText(path != nullptr ? path : "")),
      directory_(directory),
      size_(size),
      modified_(modified) {}

DirectoryEntry::~DirectoryEntry() {
    std::free(name_);
    std::free(path_);
}

DirectoryListing* DirectoryListing::make(const char* directory) {
    fs::DirectoryWalk* walk = new fs::DirectoryWalk(directory);
    if (!walk->isOpen()) {
        delete walk;
        return nullptr;
    }
    DirectoryListing* listing = new DirectoryListing;
    listing->walk_ = walk;
    listing->directory_ = copyText(directory);
    return listing;
}

DirectoryListing::~DirectoryListing() {
    delete static_cast<fs::DirectoryWalk*>(walk_);
    std::free(directory_);
}

DirectoryEntry* DirectoryListing::next() {
    fs::EntryInfo info;
    if (!static_cast<fs::DirectoryWalk*>(walk_)->next(info)) return nullptr;
    std::string path = directory_;
    if (!path.empty() && path.back() != '/' && path.back() != '\\') path += fs::kSeparator;
    path += info.name;
    return new DirectoryEntry(info.name.c_str(), path.c_str(), info.directory, info.size,
                              info.modified);
}

}  // namespace velmora
