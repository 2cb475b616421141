// A character writer over a socket's output; nothing is flushed by the writer.
//
//   velmora::SocketOutputWriter writer(socket->getOutput());
//   writer.writeString("<ok/>\n");
//   socket->getOutput()->flush();
#pragma once

#include <velmora/text/CharWriter.h>

namespace velmora {

class SocketOutput;

class VELMORA_API SocketOutputWriter : public CharWriter {
public:
    explicit SocketOutputWriter(SocketOutput* output) : output_(output) {}
    ~SocketOutputWriter() override;
    // len on success, -1 on failure.
    int write(const char* buf, int len) override;
    bool write(char c) override;
    using CharWriter::writeString;

private:
    SocketOutput* output_;
};

}  // namespace velmora
