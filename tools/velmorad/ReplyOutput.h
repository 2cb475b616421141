// The output of one answer: a socket output whose flushed bytes go to the connection's
// send buffer in memory (the event loop sends them without blocking) instead of to the
// socket. On a worker thread the bytes go through the connection's mailbox; a worker whose
// client reads slowly waits there, and learns of a client gone or a stop by a failed flush.
#pragma once

#include <velmora/net/SocketOutput.h>

namespace velmorad {

struct Connection;

class ReplyOutput : public velmora::SocketOutput {
public:
    explicit ReplyOutput(Connection* connection);
    // Bytes flushed so far.
    long delivered() const { return delivered_; }

protected:
    bool deliver(const char* data, int count) override;

private:
    Connection* connection_;
    long delivered_ = 0;
};

}  // namespace velmorad
