#include "RotatingLog.h"

#include <velmora/log/MessageBundle.h>

#include <cstdio>
#include <cstring>

namespace velmorad {

namespace {

// What a line adds to the file besides its text: level word, time stamp and thread
// number ("MESSAGE [21:17:05 22-Nov-2026] [tid=140245] "), and the line end. Taken on the
// high side, so that the file is measured a little early rather than late.
const int64_t kLineOverhead = 64;

int64_t fileSize(const std::string& path) {
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (f == nullptr) return 0;
    int64_t size = 0;
    if (std::fseek(f, 0, SEEK_END) == 0) {
        long end = std::ftell(f);
        if (end > 0) size = end;
    }
    std::fclose(f);
    return size;
}

}  // namespace

RotatingLog::RotatingLog(const std::string& path, int backups, int64_t maxBytes)
    : path_(path), backups_(backups), maxBytes_(maxBytes) {}

bool RotatingLog::open() {
    std::lock_guard<std::mutex> lock(mutex_);
    file_.reset(velmora::LogBuffer::makeFile(path_.c_str(), backups_));
    size_ = fileSize(path_);
    nextCheck_ = size_ < maxBytes_ ? maxBytes_ : size_ + maxBytes_ / 16;
    return file_ != nullptr;
}

void RotatingLog::error(velmora::MessageBundle* bundle) {
    write(3, bundle);
    saveError(bundle);
}

void RotatingLog::write(int level, velmora::MessageBundle* bundle) {
    const char* text = bundle != nullptr ? bundle->getText() : nullptr;
    int64_t length = text != nullptr ? static_cast<int64_t>(std::strlen(text)) : 0;
    std::lock_guard<std::mutex> lock(mutex_);
    if (file_ == nullptr) {  // a reopen failed: tried again for each line until it works
        file_.reset(velmora::LogBuffer::makeFile(path_.c_str(), backups_));
        if (file_ == nullptr) return;
        size_ = fileSize(path_);
        nextCheck_ = size_ < maxBytes_ ? maxBytes_ : size_ + maxBytes_ / 16;
    }
    switch (level) {
        case 0:
            file_->trace(bundle);
            break;
        case 1:
            file_->message(bundle);
            break;
        case 2:
            file_->warning(bundle);
            break;
        default:
            file_->error(bundle);
    }
    size_ += length + kLineOverhead;
    if (maxBytes_ > 0 && size_ >= nextCheck_) checkSize();
}

// Called with the lock held, after a whole line: the next line goes to whichever file is
// current when this returns.
void RotatingLog::checkSize() {
    size_ = fileSize(path_);
    if (size_ < maxBytes_) {
        nextCheck_ = maxBytes_;
        return;
    }
    // The file is closed before it is renamed (a file that is open cannot be renamed on
    // every system), and lines wait on the lock meanwhile.
    file_.reset();
    file_.reset(velmora::LogBuffer::makeFile(path_.c_str(), backups_));
    if (file_ == nullptr) {
        std::fprintf(stderr, "velmorad: cannot reopen %s; lines are lost until it can be\n",
                     path_.c_str());
        return;
    }
    int64_t after = fileSize(path_);
    if (after < size_) {
        ++rotations_;
        size_ = after;
        nextCheck_ = maxBytes_;
        return;
    }
    // Not renamed: a backup of this minute exists already (backups are named by the
    // minute), so the lines went on at the end of the same file. It is tried again once
    // another sixteenth of the limit has been written.
    size_ = after;
    nextCheck_ = size_ + maxBytes_ / 16;
}

}  // namespace velmorad
