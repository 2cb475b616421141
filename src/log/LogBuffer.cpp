#include <velmora/log/LogBuffer.h>

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <new>

#include <velmora/files/FileUtil.h>
#include <velmora/log/SystemLog.h>
#include <velmora/text/FileWriter.h>

#include "files/FileSystem.h"
#include "log/LogSystem.h"
#include "platform/SystemClock.h"

namespace velmora {

namespace {

// The level word (padded to 7 characters, so that the stamps line up) and and local time stamp of a line; the formats are literals so that the
// compiler checks each of them.
size_t formatStamp(char* buf, size_t size, int level, const std::tm* local) {
    switch (level) {
        case 0:
            return std::strftime(buf, size, "TRACE   [%H:%M:%S %d-%b-%Y] ", local);
        case 1:
            return std::strftime(buf, size, "MESSAGE [%H:%M:%S %d-%b-%Y] ", local);
        case 2:
            return std::strftime(buf, size, "WARNING [%H:%M:%S %d-%b-%Y] ", local);
        default:
            return std::strftime(buf, size, "ERROR   [%H:%M:%S %d-%b-%Y] ", local);
    }
}

}  // namespace

LogBuffer::LogBuffer(CharWriter* out, bool owned) : out_(out), owned_(owned) {
    PlatformUtil::createMutex(&mutex_);
}

LogBuffer* LogBuffer::makeFile(const char* path, int maxBackups) {
    if (path == nullptr || !FileUtil::verifyPath(path)) return nullptr;
    FileWriter* file = nullptr;
    if (FileUtil::isFileRegular(path) && FileUtil::renameToBackup(path, maxBackups) != 0) {
        // Not rotated (a backup of the same minute exists already): the new lines go on
        // at the end of the old file rather than wiping it.
        FILE* stream = fs::openStream(path, "ab");
        if (stream != nullptr) file = new (std::nothrow) FileWriter(stream);
        if (stream != nullptr && file == nullptr) std::fclose(stream);
    } else {
        file = FileWriter::make(path);
    }
    if (file == nullptr) return nullptr;
    LogBuffer* log = new (std::nothrow) LogBuffer(file, true);
    if (log == nullptr) {
        delete file;
        return nullptr;
    }
    log->file_ = file;
    return log;
}

LogBuffer::~LogBuffer() {
    PlatformUtil::lockMutex(&mutex_);
    if (owned_) delete out_;
    out_ = nullptr;
    file_ = nullptr;
    PlatformUtil::destroyMutex(&mutex_);
}

void LogBuffer::setFilterLevel(int level) {
    PlatformUtil::lockMutex(&mutex_);
    filterLevel_ = level;
    PlatformUtil::unlockMutex(&mutex_);
}

int LogBuffer::getFilterLevel() const {
    return filterLevel_;
}

bool LogBuffer::setSystemLogging(bool on, ErrorHandler* handler) {
    SystemLog* system = on ? SystemLog::getInstance(handler) : nullptr;
    PlatformUtil::lockMutex(&mutex_);
    system_ = system;
    PlatformUtil::unlockMutex(&mutex_);
    return system != nullptr || !on;
}

void LogBuffer::trace(MessageBundle* bundle) {
    writeLine(0, bundle);
}

void LogBuffer::message(MessageBundle* bundle) {
    writeLine(1, bundle);
}

void LogBuffer::warning(MessageBundle* bundle) {
    writeLine(2, bundle);
}

void LogBuffer::error(MessageBundle* bundle) {
    writeLine(3, bundle);
}

void LogBuffer::writeLine(int level, MessageBundle* bundle) {
    const char* text = bundle != nullptr && bundle->getText() != nullptr ? bundle->getText() : "";
    // The head is made before locking: only the writing needs to be in one piece.
    char head[96] = "";
    size_t headLength = 0;
    std::tm local{};
    if (clock::localTime(std::time(nullptr), &local)) {
        headLength = formatStamp(head, sizeof head, level, &local);
    }
    int n = std::snprintf(head + headLength, sizeof head - headLength, "[tid=%" PRIu64 "] ",
                          logsys::currentThreadId());
    if (n > 0) headLength += static_cast<size_t>(n);
    size_t textLength = std::strlen(text);
    bool newline = textLength == 0 || text[textLength - 1] != '\n';

    PlatformUtil::lockMutex(&mutex_);
    if (level < filterLevel_) {
        PlatformUtil::unlockMutex(&mutex_);
        return;
    }
    if (out_ != nullptr) {
        out_->write(head, static_cast<int>(headLength));
        // Texts beyond 2 GiB are written in pieces, as the writer takes int lengths.
        for (size_t done = 0; done < textLength;) {
            size_t piece = textLength - done < 0x40000000u ? textLength - done : 0x40000000u;
            out_->write(text + done, static_cast<int>(piece));
            done += piece;
        }
        if (newline) out_->write('\n');
        if (file_ != nullptr) file_->flush();
    }
    if (system_ != nullptr) system_->log(level, text);
    if (level == 3 && bundle != nullptr) saveError(bundle);
    PlatformUtil::unlockMutex(&mutex_);
}

}  // namespace velmora
