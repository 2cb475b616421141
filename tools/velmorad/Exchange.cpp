#include "Exchange.h"

#include <velmora/http/HeaderField.h>
#include <velmora/http/Http.h>
#include <velmora/net/SocketOutput.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "HostServices.h"

namespace velmorad {

namespace {

// A response that leaves its head and its body in the output together, so that a small
// answer reaches the client in one send (and one packet) instead of two. It writes the
// head as HttpMessage::write does, minus the flush; commit() flushes once afterwards.
class WholeResponse : public velmora::HttpResponse {
public:
    WholeResponse(velmora::SocketOutput* out, const std::string* body)
        : velmora::HttpResponse(out), body_(body) {}

protected:
    void doCommit() override {
        velmora::SocketOutput* out = getOutput();
        writeIntro(out);
        for (velmora::HeaderField* f = getFirstField(); f != nullptr; f = f->getNext())
            f->write(out);
        writeExtraHeaderFields(out);
        out->writeString("\r\n");
        if (body_ != nullptr && !body_->empty()) {
            out->write(body_->data(), static_cast<int>(body_->size()));
        }
    }

private:
    const std::string* body_;
};

// Every answer carries the date: formatted once a second on each thread.
void stampDate(velmora::HttpResponse& response) {
    thread_local std::time_t stampedAt = -1;
    thread_local char text[40];
    std::time_t now = std::time(nullptr);
    if (now != stampedAt) {
        struct tm utc;
        if (!utcTime(now, &utc) || velmora::Http::formatTime(&utc, nullptr, text, sizeof text) != 0)
            return;
        stampedAt = now;
    }
    response.setField("Date", text);
}

}  // namespace

std::string formValue(const char* q, const char* name, const char* def) {
    size_t nameLength = std::strlen(name);
    while (*q != '\0') {
        const char* end = std::strchr(q, '&');
        size_t length = end != nullptr ? static_cast<size_t>(end - q) : std::strlen(q);
        if (length > nameLength && std::strncmp(q, name, nameLength) == 0 && q[nameLength] == '=') {
            std::string raw(q + nameLength + 1, length - nameLength - 1);
            std::string decoded(raw.size() + 1, '\0');
            velmora::Http::decodeUri(raw.c_str(), &decoded[0], static_cast<int>(decoded.size()));
            return decoded.c_str();
        }
        if (end == nullptr) break;
        q = end + 1;
    }
    return def;
}

std::string Exchange::query(const char* name, const char* def) const {
    return formValue(request != nullptr ? request->getEncodedQuery() : "", name, def);
}

std::string Exchange::param(const char* name, const char* def) const {
    const std::string fromQuery = query(name, "\x01");
    if (fromQuery != "\x01") return fromQuery;
    const char* type = request != nullptr ? request->getField("Content-Type") : nullptr;
    const char form[] = "application/x-www-form-urlencoded";
    if (type == nullptr || std::strncmp(type, form, sizeof form - 1) != 0 ||
        (type[sizeof form - 1] != '\0' && type[sizeof form - 1] != ';')) {
        return def;
    }
    return formValue(requestBody.c_str(), name, def);
}

void Exchange::reply(int code, const char* type, const std::string& body, bool close) {
    if (out == nullptr) return;
    status = code;
    if (close) keepAlive = false;
    WholeResponse response(out, head ? nullptr : &body);
    response.setVersion("HTTP/1.1");
    response.setStatus(code);
    stampDate(response);
    response.setField("Content-Type", type);
    response.setFieldInt("Content-Length", static_cast<int>(body.size()));
    if (allow != nullptr) response.setField("Allow", allow);
    for (const auto& f : fields)
        response.setField(f.first.c_str(), f.second.c_str());
    if (!keepAlive) {
        response.setField("Connection", "close");
    } else if (request != nullptr && std::strcmp(request->getVersion(), "HTTP/1.0") == 0) {
        response.setField("Connection", "keep-alive");
    }
    response.commit();  // head and body, one flush
    if (!head) bytes = static_cast<long>(body.size());
}

void Exchange::replyError(int code, const char* message) {
    std::string body = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<error code=\"" +
                       std::to_string(code) + "\" reason=\"" +
                       xmlEscape(velmora::Http::getReasonPhrase(code)) + "\" message=\"" +
                       xmlEscape(message) + "\"/>\n";
    reply(code, "text/xml", body, true);
}

void Exchange::beginStream(int code, const char* type) {
    if (out == nullptr) return;
    status = code;
    keepAlive = false;
    velmora::HttpResponse response(out);
    response.setVersion("HTTP/1.1");
    response.setStatus(code);
    stampDate(response);
    response.setField("Content-Type", type);
    response.commit();  // no length: the head says "Connection: close"
    streamStart = out->delivered();
}

std::string xmlEscape(const std::string& text) {
    std::string out;
    for (unsigned char c : text) {
        switch (c) {
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '&':
                out += "&amp;";
                break;
            case '"':
                out += "&quot;";
                break;
            default:
                if (c < 0x20 || c > 0x7E) {
                    char ref[8];
                    std::snprintf(ref, sizeof ref, "&#x%x;", c);
                    out += ref;
                } else {
                    out += static_cast<char>(c);
                }
        }
    }
    return out;
}

}  // namespace velmorad
