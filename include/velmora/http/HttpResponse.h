// An HTTP/1.x response written to a socket output: status line, the message's fields, the
// platform's fixed fields ("Velmora-Platform: NT", the constant fields, "Server: Velmora
// Web Server/3.0", and "Connection: close" when the length is unknown), the empty line.
//
//   velmora::HttpResponse response(socket->getOutput());
//   response.setFieldInt("Content-Length", 2);
//   response.setField("Content-Type", "text/plain");
//   response.commit();                         // the head
//   socket->getOutput()->write("ok", 2);
//   socket->getOutput()->flush();
//
// Kept on purpose: the error senders put the body into the output before commit writes
// the head, so the peer receives the body first. A server that must answer ordinary
// clients builds its error replies from the primitives above.
#pragma once

#include <velmora/http/HttpMessage.h>

namespace velmora {

class MessageBundle;

class VELMORA_API HttpResponse : public HttpMessage {
public:
    explicit HttpResponse(SocketOutput* output);
    ~HttpResponse() override;

    int getStatus() const { return status_; }
    void setStatus(int status) { status_ = status; }
    // The reason text, or null for the phrase of the status table.
    const char* getReason() const { return reason_; }
    void setReason(const char* reason);
    // The request's method; the error senders send no body for "HEAD".
    void setRequestMethod(const char* method);
    const char* getRequestMethod() const { return requestMethod_; }

    void sendError(int status);
    // An HTML page "<status>: <message or phrase>"; 1xx, 204 and 304 send the head only,
    // 403, 404 and 500 also close the connection.
    void sendError(int status, const char* message);
    // As sendError with an XML body: the prolog, then <error code="status"> holding the
    // bundle's XML form; the reason is the table phrase.
    void sendErrorXML(int status, MessageBundle* message);

    // Fields written into every response after "Velmora-Platform: NT", in the order added.
    static void addConstantHeaderField(const char* name, const char* value);
    static void unload();

protected:
    void doCommit() override;
    bool isKnownLength() override;
    bool writeIntro(SocketOutput* out) override;
    bool writeExtraHeaderFields(SocketOutput* out) override;

private:
    // The steps both error senders share up to the body; false when no body follows.
    bool prepareError(int status, const char* reason);
    void sendBody(const char* body, int length, const char* type);

    int status_ = 200;
    char* reason_ = nullptr;
    char* requestMethod_ = nullptr;
};

}  // namespace velmora
