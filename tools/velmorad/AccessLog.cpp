#include "AccessLog.h"

#include <charconv>
#include <cstring>

#include "HostServices.h"

namespace velmorad {

namespace {

const std::chrono::milliseconds kBatchInterval(100);
// A batch is written early when it grows this large, so that a burst does not pile up.
const size_t kBatchBytes = 256 * 1024;

void field(const std::string& text, std::string* out) {
    if (text.empty()) {
        out->push_back('-');
    } else {
        AccessLog::escape(text.data(), text.size(), out);
    }
}

}  // namespace

AccessLog::AccessLog(const std::string& path, int backups, int64_t maxBytes)
    : path_(path), backups_(backups), maxBytes_(maxBytes) {}

AccessLog::~AccessLog() {
    flush();
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    handed_.notify_one();
    if (writer_.joinable()) writer_.join();
    if (file_ != nullptr) std::fclose(file_);
}

bool AccessLog::open() {
    if (!openFile()) return false;
    if (!writer_.joinable()) writer_ = std::thread([this] { writerLoop(); });
    return true;
}

bool AccessLog::openFile() {
    file_ = std::fopen(path_.c_str(), "ab");
    if (file_ == nullptr) return false;
    std::fseek(file_, 0, SEEK_END);
    long end = std::ftell(file_);
    size_ = end > 0 ? end : 0;
    return true;
}

void AccessLog::escape(const char* text, size_t length, std::string* out) {
    static const char kHex[] = "0123456789abcdef";
    for (size_t i = 0; i < length; ++i) {
        unsigned char c = static_cast<unsigned char>(text[i]);
        if (c < 0x20 || c > 0x7e || c == '"' || c == '\\') {
            out->append("\\x");
            out->push_back(kHex[c >> 4]);
            out->push_back(kHex[c & 15]);
        } else {
            out->push_back(static_cast<char>(c));
        }
    }
}

// "[23/Nov/2026:18:20:01 +0100]", made once a second.
const std::string& AccessLog::stamp(std::time_t now) {
    if (now == stampedAt_ && !stamp_.empty()) return stamp_;
    static const char* const kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                          "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    struct tm local = {};
    long offset = 0;
    if (!localTime(now, &local, &offset)) {
        utcTime(now, &local);
        offset = 0;
    }
    char sign = offset < 0 ? '-' : '+';
    long minutes = (offset < 0 ? -offset : offset) / 60;
    char text[64];
    std::snprintf(text, sizeof text, "[%02d/%s/%04d:%02d:%02d:%02d %c%02ld%02ld]", local.tm_mday,
                  kMonths[local.tm_mon % 12], local.tm_year + 1900, local.tm_hour, local.tm_min,
                  local.tm_sec, sign, minutes / 60, minutes % 60);
    stamp_ = text;
    stampedAt_ = now;
    return stamp_;
}

void AccessLog::add(const Entry& e) {
    std::string& b = buffer_;
    escape(e.peer, std::strlen(e.peer), &b);
    b.append(" - - ");
    b.append(stamp(std::time(nullptr)));
    b.append(" \"");
    field(e.requestLine, &b);
    b.append("\" ");
    char numbers[48];
    char* end = std::to_chars(numbers, numbers + 20, e.status).ptr;
    *end++ = ' ';
    end = std::to_chars(end, end + 24, e.bytes).ptr;
    b.append(numbers, static_cast<size_t>(end - numbers));
    b.append(" \"");
    field(e.referer, &b);
    b.append("\" \"");
    field(e.userAgent, &b);
    b.append("\"\n");
    if (b.size() >= kBatchBytes) handOver();
}

void AccessLog::flushIfDue(std::chrono::steady_clock::time_point now) {
    if (buffer_.empty() || now - lastHandOver_ < kBatchInterval) return;
    lastHandOver_ = now;
    handOver();
}

void AccessLog::flush() {
    handOver();
    std::unique_lock<std::mutex> lock(mutex_);
    if (!writer_.joinable()) return;
    const uint64_t mine = batchesHanded_;
    written_.wait(lock, [&] { return batchesWritten_ >= mine; });
}

void AccessLog::handOver() {
    if (buffer_.empty()) return;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        // Kept for the writer rather than dropped, up to a bound: a file that cannot be
        // opened (or a disk far slower than the requests) must not take all memory.
        if (pending_.size() > 16 * kBatchBytes) pending_.clear();
        if (pending_.empty()) {
            pending_.swap(buffer_);
        } else {
            pending_.append(buffer_);
        }
        ++batchesHanded_;
    }
    buffer_.clear();
    handed_.notify_one();
}

void AccessLog::writerLoop() {
    std::string batch;
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        handed_.wait(lock, [&] { return stopping_ || batchesWritten_ < batchesHanded_; });
        if (batchesWritten_ == batchesHanded_ && stopping_) return;
        const uint64_t taken = batchesHanded_;
        batch.swap(pending_);
        lock.unlock();
        const bool whole = write(&batch);
        lock.lock();
        if (!whole) {
            // The file could not be opened: what is left goes first in the next try.
            batch.append(pending_);
            pending_.swap(batch);
        }
        batch.clear();
        batchesWritten_ = taken;
        written_.notify_all();
    }
}

// Writes `batch` (the writer's thread only); false when the file could not be opened and
// a part is left in it.
bool AccessLog::write(std::string* batch) {
    std::string& b = *batch;
    if (file_ == nullptr && !openFile()) return false;
    // The file is rotated before the line that would take it past its limit, so that no
    // file grows beyond it by more than one line.
    size_t from = 0;
    while (from < b.size()) {
        size_t end = b.size();
        if (maxBytes_ > 0 && size_ + static_cast<int64_t>(end - from) > maxBytes_) {
            size_t room = static_cast<size_t>(maxBytes_ > size_ ? maxBytes_ - size_ : 0);
            size_t cut = b.rfind('\n', from + room - (room > 0 ? 1 : 0));
            if (room > 0 && cut != std::string::npos && cut >= from) {
                end = cut + 1;
            } else if (size_ > 0) {
                rotate();
                if (file_ == nullptr) {
                    b.erase(0, from);  // the rest waits for the file to open
                    return false;
                }
                continue;
            } else {
                end = b.find('\n', from) + 1;  // one line longer than the limit
            }
        }
        std::fwrite(b.data() + from, 1, end - from, file_);
        size_ += static_cast<int64_t>(end - from);
        from = end;
    }
    std::fflush(file_);
    return true;
}

// access.log becomes access.log.1, access.log.1 becomes .2, and so on up to the backups
// kept; the oldest is removed. Only whole batches were written, so no line is split.
void AccessLog::rotate() {
    std::fclose(file_);
    file_ = nullptr;
    if (backups_ > 0) {
        std::string oldest = path_ + "." + std::to_string(backups_);
        std::remove(oldest.c_str());
        for (int i = backups_ - 1; i >= 1; --i) {
            std::string from = path_ + "." + std::to_string(i);
            std::string to = path_ + "." + std::to_string(i + 1);
            std::rename(from.c_str(), to.c_str());
        }
        std::string first = path_ + ".1";
        std::rename(path_.c_str(), first.c_str());
    } else {
        std::remove(path_.c_str());
    }
    openFile();
}

}  // namespace velmorad
