#include <velmora/files/FileUtil.h>

#include <velmora/files/DirectoryListing.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "files/FileSystem.h"
#include "platform/SystemClock.h"

namespace velmora {

namespace {

bool isSeparator(char c) {
    return c == '\\' || c == '/';
}

size_t lastSeparator(const std::string& s) {
    return s.find_last_of("\\/");
}

// The "\\server\share" head of a UNC path names no directory that could be created, so
// verifyPath walks past it; returns the index where ordinary components start.
size_t uncHeadEnd(const char* path) {
    if (!(path[0] == '\\' && path[1] == '\\')) return 0;
    size_t i = 2;
    for (int parts = 0; parts < 2 && path[i] != '\0'; ++i) {
        if (isSeparator(path[i])) ++parts;
    }
    return i;
}

std::string backupSuffix() {
    char suffix[32] = ".backup_";
    std::tm now;
    if (clock::localTime(std::time(nullptr), &now)) {
        std::strftime(suffix, sizeof suffix, ".backup_%Y%m%d_%H%M", &now);
    }
    return suffix;
}

// Deletes the oldest backups (by modification time, then name) so that `max` remain.
void pruneBackups(const std::string& path, int max) {
    size_t sep = lastSeparator(path);
    std::string dir = sep == std::string::npos ? "." : path.substr(0, sep == 0 ? 1 : sep);
    std::string base = sep == std::string::npos ? path : path.substr(sep + 1);
    std::string prefix = base.substr(0, base.rfind('.')) + ".backup_";

    std::unique_ptr<DirectoryListing> listing(DirectoryListing::make(dir.c_str()));
    if (!listing) return;
    std::vector<std::unique_ptr<DirectoryEntry>> backups;
    while (DirectoryEntry* e = listing->next()) {
        std::unique_ptr<DirectoryEntry> entry(e);
        if (std::strncmp(e->getName(), prefix.c_str(), prefix.size()) == 0) {
            backups.push_back(std::move(entry));
        }
    }
    std::stable_sort(backups.begin(), backups.end(), [](const auto& a, const auto& b) {
        if (a->getModified() != b->getModified()) return a->getModified() < b->getModified();
        return std::strcmp(a->getName(), b->getName()) < 0;
    });
    // Kept: with exactly `max` backups nothing goes, so `max` + 1 remain after the rename.
    size_t count = backups.size();
    for (size_t i = 0; count >= static_cast<size_t>(max) && i < count - max; ++i) {
        if (FileUtil::deleteFile(backups[i]->getPath()) != 0)
            std::fputs("error deleting file\n", stderr);
    }
}

}  // namespace

bool FileUtil::verifyPath(const char* path) {
    if (path == nullptr) return false;
    std::string scratch(path);
    for (size_t i = uncHeadEnd(path); i < scratch.size(); ++i) {
        if (!isSeparator(scratch[i])) continue;
        std::string prefix = scratch.substr(0, i);
        // The root and a drive such as "C:" are never created.
        if (prefix.empty() || isSeparator(prefix.back()) || prefix.back() == ':') continue;
        if (!fs::exists(prefix.c_str()) && !createDirectory(prefix.c_str())) return false;
    }
    return true;
}

bool FileUtil::createDirectory(const char* path) {
    if (path == nullptr || path[0] == '\0') return false;
    if (fs::isDirectory(path)) return true;
    if (fs::exists(path)) return false;
    return fs::makeDirectory(path);
}

bool FileUtil::isDirectory(const char* path) {
    return fs::isDirectory(path);
}

bool FileUtil::isFileRegular(const char* path) {
    return fs::isRegular(path);
}

int FileUtil::deleteFile(const char* path) {
    return fs::removeFile(path);
}

const char* FileUtil::getExtension(const char* path) {
    static const char kNone[] = "";
    const char* dot = path != nullptr ? std::strrchr(path, '.') : nullptr;
    return dot != nullptr ? dot + 1 : kNone;
}

void FileUtil::getFilesystemName(const char* path, char* buf, int size) {
    if (buf == nullptr || size <= 0) return;
    if (path == nullptr) {
        buf[0] = '\0';
        return;
    }
    size_t length = std::strlen(path);
    size_t sep = std::string::npos;
    for (size_t i = (path[0] == '\\' && path[1] == '\\') ? 2 : 0; i < length; ++i) {
        if (isSeparator(path[i])) {
            sep = i;
            break;
        }
    }
    size_t cut = sep == std::string::npos ? length : sep + 1;
    size_t n = std::min(cut, static_cast<size_t>(size - 1));
    std::memcpy(buf, path, n);
    buf[n] = '\0';
    if (sep != std::string::npos && sep < n) buf[sep] = '\\';
}

bool FileUtil::rewriteFile(const char* path, const char* data, size_t length, int* error) {
    int code = data == nullptr && length > 0 ? -1 : fs::rewrite(path, data, length);
    if (error != nullptr) *error = code;
    return code == 0;
}

int FileUtil::renameToBackup(const char* path, int max) {
    if (path == nullptr || path[0] == '\0') return -1;
    std::string source(path);
    if (max > 1) pruneBackups(source, max);

    std::string target;
    size_t dot = source.rfind('.');
    if (dot == std::string::npos) {
        target = source + backupSuffix();
    } else {
        target = source.substr(0, dot) + backupSuffix() + source.substr(dot);
    }
    return fs::renameNoReplace(source.c_str(), target.c_str());
}

}  // namespace velmora
