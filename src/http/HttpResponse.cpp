#include <velmora/http/HttpResponse.h>

#include <velmora/log/MessageBundle.h>
#include <velmora/net/SocketOutput.h>
#include <velmora/text/StringWriter.h>
#include <velmora/xml/XWriter.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace velmora {

namespace {

// Made and freed at start-up and shutdown, without a lock.
HeaderField* constantFirst = nullptr;
HeaderField* constantLast = nullptr;

char* copyText(const char* s) {
    if (s == nullptr) return nullptr;
    size_t n = std::strlen(s) + 1;
    char* out = static_cast<char*>(std::malloc(n));
    if (out != nullptr) std::memcpy(out, s, n);
    return out;
}

}  // namespace

HttpResponse::HttpResponse(SocketOutput* output) : HttpMessage(nullptr, output) {}

HttpResponse::~HttpResponse() {
    std::free(reason_);
    std::free(requestMethod_);
}

void HttpResponse::setReason(const char* reason) {
    char* copy = copyText(reason);
    std::free(reason_);
    reason_ = copy;
}

void HttpResponse::setRequestMethod(const char* method) {
    char* copy = copyText(method);
    std::free(requestMethod_);
    requestMethod_ = copy;
}

void HttpResponse::doCommit() {
    write(getOutput());
}

bool HttpResponse::isKnownLength() {
    return HttpMessage::isKnownLength() || status_ == 100 || status_ == 204;
}

bool HttpResponse::writeIntro(SocketOutput* out) {
    out->writef("%s %d %s\r\n", getVersion() != nullptr ? getVersion() : "HTTP/1.1", status_,
                reason_ != nullptr ? reason_ : getReasonPhrase(status_));
    return true;
}

bool HttpResponse::writeExtraHeaderFields(SocketOutput* out) {
    out->writeString("Velmora-Platform: NT\r\n");
    for (HeaderField* f = constantFirst; f != nullptr; f = f->getNext())
        f->write(out);
    out->writeString("Server: Velmora Web Server/3.0\r\n");
    if (!isKnownLength()) out->writeString("Connection: close\r\n");
    return true;
}

bool HttpResponse::prepareError(int status, const char* reason) {
    status_ = status;
    setReason(reason);
    if ((status >= 100 && status < 200) || status == 204 || status == 304) {
        commit();
        return false;
    }
    if (status == 403 || status == 404 || status == 500) setField("Connection", "close");
    if (requestMethod_ != nullptr && std::strcmp(requestMethod_, "HEAD") == 0) {
        setFieldInt("Content-Length", 0);
        commit();
        return false;
    }
    return true;
}

void HttpResponse::sendBody(const char* body, int length, const char* type) {
    setFieldInt("Content-Length", length);
    setField("Content-Type", type);
    // Kept: the body enters the output before commit writes the head.
    if (getOutput() != nullptr) getOutput()->write(body, length);
    commit();
}

void HttpResponse::sendError(int status) {
    sendError(status, nullptr);
}

void HttpResponse::sendError(int status, const char* message) {
    if (!prepareError(status, message)) return;
    char number[16];
    std::snprintf(number, sizeof number, "%d: ", status);
    std::string body = "<html>\n<body>\n<h1>";
    body += number;
    body += message != nullptr ? message : getReasonPhrase(status);
    body += "</h1>\n</body>\n</html>";
    sendBody(body.data(), static_cast<int>(body.size()), "text/html");
}

void HttpResponse::sendErrorXML(int status, MessageBundle* message) {
    if (!prepareError(status, nullptr)) return;
    StringWriter body(4096);
    {
        XWriter out(&body);  // closes `body` when it goes; the text stays readable
        out.prolog()->w("<error ")->attrf("code", "%d", 16, status)->w(">\n");
        if (message != nullptr) message->appendXML(&out);
        out.w("</error>\n");
    }
    sendBody(body.getString(), body.getLength(), "text/xml");
}

void HttpResponse::addConstantHeaderField(const char* name, const char* value) {
    HeaderField* field = new HeaderField(name, value);
    if (constantLast != nullptr) {
        constantLast->next_ = field;
    } else {
        constantFirst = field;
    }
    constantLast = field;
}

void HttpResponse::unload() {
    while (constantFirst != nullptr) {
        HeaderField* next = constantFirst->getNext();
        delete constantFirst;
        constantFirst = next;
    }
    constantLast = nullptr;
}

}  // namespace velmora
