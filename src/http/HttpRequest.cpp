#include <velmora/http/AuthenticationInfo.h>
#include <velmora/http/HttpRequest.h>

#include <velmora/net/SocketInput.h>

#include <cstdlib>
#include <cstring>

namespace velmora {

namespace {

const int kUriRoom = 4096;

// Cuts the text at its first '?' and returns what followed it ("" when there was none).
const char* splitQuery(char* text) {
    char* mark = std::strchr(text, '?');
    if (mark == nullptr) return "";
    *mark = '\0';
    return mark + 1;
}

}  // namespace

AuthenticationInfo::~AuthenticationInfo() = default;

HttpRequest::HttpRequest(SocketInput* input) : HttpMessage(input, nullptr) {}

HttpRequest::~HttpRequest() {
    clearLine();
    delete authInfo_;
}

void HttpRequest::clearLine() {
    std::free(method_);
    std::free(decodedUri_);
    std::free(rawUri_);
    method_ = decodedUri_ = rawUri_ = nullptr;
    decodedQuery_ = encodedQuery_ = "";
}

void HttpRequest::setAuthInfo(AuthenticationInfo* info) {
    if (info == authInfo_) return;
    delete authInfo_;
    authInfo_ = info;
}

bool HttpRequest::readIntro(SocketInput* in) {
    clearLine();
    method_ = in->readString(10, 32, ' ');
    if (method_ == nullptr) return false;
    rawUri_ = in->readString(32, 4096, ' ');
    if (rawUri_ == nullptr) return false;
    decodedUri_ = static_cast<char*>(std::malloc(kUriRoom));
    if (decodedUri_ == nullptr) return false;
    Http::decodeUri(rawUri_, decodedUri_, kUriRoom);
    decodedQuery_ = splitQuery(decodedUri_);
    encodedQuery_ = splitQuery(rawUri_);

    char* version = in->readString(10, 32, '\r');
    if (version == nullptr) {
        std::free(decodedUri_);
        decodedUri_ = nullptr;
        decodedQuery_ = "";
        return false;
    }
    setVersion(version);
    std::free(version);
    char lf = 0;
    return in->readByte(&lf) && lf == '\n';
}

}  // namespace velmora
