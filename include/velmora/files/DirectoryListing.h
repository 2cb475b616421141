// The entries of one directory, handed out one at a time ("." and ".." left out). The
// order is the file system's own, so callers that need an order sort for themselves.
//
//   std::unique_ptr<velmora::DirectoryListing> dir(velmora::DirectoryListing::make("logs"));
//   while (dir) {
//       std::unique_ptr<velmora::DirectoryEntry> e(dir->next());
//       if (!e) break;
//       printf("%s %lld\n", e->getName(), (long long)e->getModified());
//   }
#pragma once

#include <cstdint>

#include <velmora/Export.h>

namespace velmora {

class VELMORA_API DirectoryEntry {
public:
    DirectoryEntry(const char* name, const char* path, bool directory, int64_t size,
                   int64_t modified);
    ~DirectoryEntry();

    const char* getName() const { return name_; }
    const char* getPath() const { return path_; }  // the directory joined with the name
    bool isDirectory() const { return directory_; }
    int64_t getSize() const { return size_; }
    int64_t getModified() const { return modified_; }  // whole seconds since 1970

private:
    DirectoryEntry(const DirectoryEntry&) = delete;
    DirectoryEntry& operator=(const DirectoryEntry&) = delete;

    char* name_;
    char* path_;
    bool directory_;
    int64_t size_;
    int64_t modified_;
};

class VELMORA_API DirectoryListing {
public:
    // Null when the path is null or names no readable directory.
    static DirectoryListing* make(const char* directory);
    ~DirectoryListing();

    // The next entry, which the caller deletes; null after the last one.
    DirectoryEntry* next();

private:
    DirectoryListing() = default;
    DirectoryListing(const DirectoryListing&) = delete;
    DirectoryListing& operator=(const DirectoryListing&) = delete;

    void* walk_ = nullptr;
    char* directory_ = nullptr;
};

}  // namespace velmora
