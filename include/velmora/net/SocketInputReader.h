// A character reader over a socket's input, for parsers that read through a CharReader.
//
//   velmora::SocketInputReader reader(socket->getInput());
//   for (int c = reader.getChar(); c != -1; c = reader.getChar()) consume(c);
#pragma once

#include <velmora/text/CharReader.h>

namespace velmora {

class SocketInput;

class VELMORA_API SocketInputReader : public CharReader {
public:
    explicit SocketInputReader(SocketInput* input) : input_(input) {}
    ~SocketInputReader() override;
    int getChar() override;
    // Up to size bytes (blocking until all arrive or the input fails); at the end the
    // buffer is null and the reader is at end of file.
    void getBuf(int size, char** buf, int* len) override;
    bool eof() override { return eof_; }

private:
    SocketInput* input_;
    bool eof_ = false;
};

}  // namespace velmora
