#include "RotatingLog.h"

#include <velmora/files/DirectoryListing.h>
#include <velmora/files/FileUtil.h>
#include <velmora/log/MessageBundle.h>
#include <velmora/text/CharWriter.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <vector>

#include "HostServices.h"

namespace velmorad {

// Appends to the file through stdio and pushes each whole line to the system at its end
// (one write per line), counting the bytes so that the size is known without asking.
class RotatingLog::CountingFile : public velmora::CharWriter {
public:
    CountingFile(std::FILE* f, int64_t size) : f_(f), size_(size) {}
    ~CountingFile() override { close(); }
    int write(const char* buf, int len) override {
        if (f_ == nullptr || len <= 0) return 0;
        const size_t n = std::fwrite(buf, 1, static_cast<size_t>(len), f_);
        size_ += static_cast<int64_t>(n);
        if (buf[len - 1] == '\n') std::fflush(f_);
        return static_cast<int>(n);
    }
    bool write(char c) override {
        if (f_ == nullptr || std::fputc(c, f_) == EOF) return false;
        ++size_;
        if (c == '\n') std::fflush(f_);
        return true;
    }
    void close() override {
        if (f_ != nullptr) std::fclose(f_);
        f_ = nullptr;
    }
    int64_t size() const { return size_; }

private:
    std::FILE* f_;
    int64_t size_;
};

namespace {

// Spares the journal a line per trace and message: only warnings and errors go there,
// with the priority prefix (<4> warning, <3> error) that the journal reads from a stream.
void echo(int level, const char* text) {
    if (level < 2 || text == nullptr) return;
    std::fprintf(stderr, "%svelmorad: %s%s", level == 2 ? "<4>" : "<3>", text,
                 text[0] != '\0' && text[std::strlen(text) - 1] == '\n' ? "" : "\n");
    std::fflush(stderr);
}

int64_t fileSize(const std::string& path) {
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (f == nullptr) return 0;
    long end = std::fseek(f, 0, SEEK_END) == 0 ? std::ftell(f) : 0;
    std::fclose(f);
    return end > 0 ? end : 0;
}

std::string directoryOf(const std::string& path) {
    const size_t slash = path.find_last_of("/\\");
    return slash == std::string::npos ? "." : path.substr(0, slash == 0 ? 1 : slash);
}

// "logs/velmorad.log" -> "velmorad.backup_"
std::string backupPrefix(const std::string& path) {
    const size_t slash = path.find_last_of("/\\");
    std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
    return base.substr(0, base.rfind('.')) + ".backup_";
}

std::string extensionOf(const std::string& path) {
    const size_t slash = path.find_last_of("/\\");
    const size_t dot = path.rfind('.');
    return dot != std::string::npos && (slash == std::string::npos || dot > slash)
               ? path.substr(dot)
               : "";
}

}  // namespace

RotatingLog::RotatingLog(const std::string& path, int backups, int64_t maxBytes)
    : path_(path), backups_(backups), maxBytes_(maxBytes) {}

RotatingLog::~RotatingLog() = default;

bool RotatingLog::open() {
    std::lock_guard<std::mutex> lock(mutex_);
    return openLocked(true);
}

bool RotatingLog::reopen() {
    std::lock_guard<std::mutex> lock(mutex_);
    return openLocked(false);
}

void RotatingLog::setLimits(int backups, int64_t maxBytes) {
    std::lock_guard<std::mutex> lock(mutex_);
    backups_ = backups;
    maxBytes_ = maxBytes;
    pruneLocked();
    if (file_ != nullptr && maxBytes_ > 0 && file_->size() >= maxBytes_) rotateLocked();
}

int64_t RotatingLog::diskLimit() const {
    if (maxBytes_ <= 0) return -1;
    // A file ends at most one line beyond the limit; a line is taken as 64 KiB here.
    return (static_cast<int64_t>(backups_) + 1) * (maxBytes_ + 65536);
}

bool RotatingLog::openLocked(bool rotateFirst) {
    lines_.reset();
    file_ = nullptr;
    if (!velmora::FileUtil::verifyPath(path_.c_str())) return false;
    if (rotateFirst) rotateLocked();
    std::FILE* f = std::fopen(path_.c_str(), "ab");
    if (f == nullptr) return false;
    std::fseek(f, 0, SEEK_END);
    const long size = std::ftell(f);
    file_ = new CountingFile(f, size > 0 ? size : 0);
    lines_.reset(new velmora::LogBuffer(file_, true));
    return true;
}

// Moves the current file (closed first: an open file cannot be renamed everywhere) to a
// new backup name and drops the oldest backups beyond the count.
void RotatingLog::rotateLocked() {
    const bool wasOpen = lines_ != nullptr;
    lines_.reset();
    file_ = nullptr;
    if (velmora::FileUtil::isFileRegular(path_.c_str()) && fileSize(path_) > 0) {
        char stamp[32] = "00000000_000000";
        struct tm utc;
        if (utcTime(std::time(nullptr), &utc))
            std::strftime(stamp, sizeof stamp, "%Y%m%d_%H%M%S", &utc);
        if (lastStamp_ != stamp) {
            lastStamp_ = stamp;
            sequence_ = 0;
        }
        const std::string stem = directoryOf(path_) + "/" + backupPrefix(path_) + stamp + "-";
        std::string target;
        do {
            char number[16];
            std::snprintf(number, sizeof number, "%06d", sequence_++);
            target = stem + number + extensionOf(path_);
        } while (velmora::FileUtil::isFileRegular(target.c_str()));
        if (std::rename(path_.c_str(), target.c_str()) == 0) {
            ++rotations_;
        } else {
            std::fprintf(stderr, "velmorad: cannot rename %s to %s\n", path_.c_str(),
                         target.c_str());
        }
        pruneLocked();
    }
    if (wasOpen && !openLocked(false)) {
        std::fprintf(stderr, "velmorad: cannot reopen %s; lines are lost until it can be\n",
                     path_.c_str());
    }
}

void RotatingLog::pruneLocked() {
    const std::string prefix = backupPrefix(path_);
    std::unique_ptr<velmora::DirectoryListing> dir(
        velmora::DirectoryListing::make(directoryOf(path_).c_str()));
    if (!dir) return;
    std::vector<std::string> backups;
    while (velmora::DirectoryEntry* e = dir->next()) {
        std::unique_ptr<velmora::DirectoryEntry> entry(e);
        if (!e->isDirectory() && std::strncmp(e->getName(), prefix.c_str(), prefix.size()) == 0) {
            backups.push_back(e->getPath());
        }
    }
    // The names sort by time: a date and time, then a sequence number of fixed width.
    std::sort(backups.begin(), backups.end());
    const size_t keep = backups_ > 0 ? static_cast<size_t>(backups_) : 0;
    for (size_t i = 0; i + keep < backups.size(); ++i)
        velmora::FileUtil::deleteFile(backups[i].c_str());
}

void RotatingLog::error(velmora::MessageBundle* bundle) {
    write(3, bundle);
    saveError(bundle);
}

void RotatingLog::write(int level, velmora::MessageBundle* bundle) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (echo_) echo(level, bundle != nullptr ? bundle->getText() : nullptr);
    if (lines_ == nullptr && !openLocked(false)) return;  // tried again for each line
    switch (level) {
        case 0:
            lines_->trace(bundle);
            break;
        case 1:
            lines_->message(bundle);
            break;
        case 2:
            lines_->warning(bundle);
            break;
        default:
            lines_->error(bundle);
    }
    if (maxBytes_ > 0 && file_->size() >= maxBytes_) rotateLocked();
}

}  // namespace velmorad
