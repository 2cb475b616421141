// A log that streams its entries into an HTTP response as one XML document, so that a long
// operation started over HTTP reports its progress to the client as it goes:
//
//   <?xml ...?>
//   <log>
//   <message>
//   ...the bundle's XML form...
//   </message>
//   </log>
//
// The first entry sets status 200 and "Content-Type: text/xml", writes the prolog and
// "<log>" and commits the response; the destructor writes "</log>" and commits again
// (which flushes). Entries themselves are not flushed. Destroy the log before its response.
//
// Kept on purpose: the prolog enters the output before the first commit writes the head.
// A server that needs the head first commits its own head and gives the log a response
// whose commit writes nothing.
#pragma once

#include <velmora/log/Log.h>

namespace velmora {

class HttpResponse;

class VELMORA_API HttpLog : public virtual Log {
public:
    explicit HttpLog(HttpResponse* response);  // null: nothing is written
    ~HttpLog() override;

    using ErrorHandler::error;
    using Log::message;
    using Log::trace;
    using Log::warning;
    void message(MessageBundle* bundle) override;
    void warning(MessageBundle* bundle) override;
    void trace(MessageBundle* bundle) override;
    void error(MessageBundle* bundle) override;

    int getEntryCount() const { return count_; }

private:
    HttpLog(const HttpLog&) = delete;
    HttpLog& operator=(const HttpLog&) = delete;
    void entry(const char* open, const char* close, MessageBundle* bundle);

    HttpResponse* response_;
    int count_ = 0;
};

}  // namespace velmora
