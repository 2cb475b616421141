// An HTTP/1.x request read from a socket input: the request line, then the header fields.
//
//   velmora::HttpRequest request(socket->getInput());
//   if (request.read(socket->getInput())) {
//       request.getMethod();        // "GET"
//       request.getDecodedURI();    // "/a b"     for GET /a%20b?x=%41 HTTP/1.0
//       request.getDecodedQuery();  // "x=A"
//       request.getEncodedQuery();  // "x=%41"
//   }
//
// Kept on purpose: the path is cut at the first '?' after decoding, so "%3F" in a path
// splits it like a '?'.
#pragma once

#include <velmora/http/HttpMessage.h>

namespace velmora {

class AuthenticationInfo;

class VELMORA_API HttpRequest : public HttpMessage {
public:
    explicit HttpRequest(SocketInput* input);
    ~HttpRequest() override;

    // Null until a request line was read.
    const char* getMethod() const { return method_; }
    const char* getDecodedURI() const { return decodedUri_; }
    const char* getEncodedURI() const { return rawUri_; }
    // The query as received, after the '?' ("" when there was none).
    const char* getQuery() const { return encodedQuery_; }
    const char* getEncodedQuery() const { return encodedQuery_; }
    const char* getDecodedQuery() const { return decodedQuery_; }

    AuthenticationInfo* getAuthInfo() const { return authInfo_; }
    // Takes ownership; the previous record is deleted.
    void setAuthInfo(AuthenticationInfo* info);

protected:
    // Method (at most 21 characters), URI (at most 2111) and version (at most 21), the
    // version ended by CR LF; false at the first missing or over-long part.
    bool readIntro(SocketInput* in) override;

private:
    void clearLine();

    char* method_ = nullptr;
    char* decodedUri_ = nullptr;  // 4096 bytes
    const char* decodedQuery_ = "";
    char* rawUri_ = nullptr;
    const char* encodedQuery_ = "";
    AuthenticationInfo* authInfo_ = nullptr;
};

}  // namespace velmora
