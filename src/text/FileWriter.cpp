#include <velmora/text/FileWriter.h>

#include <velmora/files/FileUtil.h>

#include "files/FileSystem.h"

namespace velmora {

FileWriter::FileWriter(FILE* stream) : stream_(stream) {}

FileWriter* FileWriter::make(const char* path) {
    if (path == nullptr) return nullptr;
    FileUtil::verifyPath(path);
    FILE* stream = fs::openStream(path, "wb");
    return stream != nullptr ? new FileWriter(stream) : nullptr;
}

FileWriter::~FileWriter() {
    close();
}

int FileWriter::write(const char* buf, int len) {
    if (stream_ == nullptr || buf == nullptr || len <= 0) return 0;
    return static_cast<int>(std::fwrite(buf, 1, static_cast<size_t>(len), stream_));
}

bool FileWriter::write(char c) {
    return stream_ != nullptr && std::fputc(c, stream_) != EOF;
}

void FileWriter::close() {
    if (stream_ != nullptr) {
        std::fclose(stream_);
        stream_ = nullptr;
    }
}

bool FileWriter::flush() {
    return stream_ != nullptr && std::fflush(stream_) == 0;
}

}  // namespace velmora
