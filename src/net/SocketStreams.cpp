// The character reader and writer over a socket's streams.
#include <velmora/net/SocketInput.h>
#include <velmora/net/SocketInputReader.h>
#include <velmora/net/SocketOutput.h>
#include <velmora/net/SocketOutputWriter.h>

#include <cstdlib>

namespace velmora {

SocketInputReader::~SocketInputReader() = default;

int SocketInputReader::getChar() {
    char c;
    if (!input_->readByte(&c)) {
        eof_ = true;
        return -1;
    }
    return static_cast<unsigned char>(c);
}

void SocketInputReader::getBuf(int size, char** buf, int* len) {
    char* block =
        size > 0 ? static_cast<char*>(std::calloc(static_cast<size_t>(size), 1)) : nullptr;
    const int got = block != nullptr ? input_->read(block, size) : 0;
    if (len != nullptr) *len = got;
    if (got > 0) {
        *buf = block;
        return;
    }
    std::free(block);
    *buf = nullptr;
    eof_ = true;
}

SocketOutputWriter::~SocketOutputWriter() = default;

int SocketOutputWriter::write(const char* buf, int len) {
    return output_->write(buf, len) ? len : -1;
}

bool SocketOutputWriter::write(char c) {
    return output_->writeByte(c);
}

}  // namespace velmora
