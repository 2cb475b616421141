#include <velmora/http/HttpLog.h>

#include <velmora/http/HttpResponse.h>
#include <velmora/log/MessageBundle.h>
#include <velmora/net/SocketOutput.h>
#include <velmora/net/SocketOutputWriter.h>
#include <velmora/xml/XWriter.h>

namespace velmora {

HttpLog::HttpLog(HttpResponse* response) : response_(response) {}

HttpLog::~HttpLog() {
    if (response_ == nullptr || count_ == 0 || response_->getOutput() == nullptr) return;
    response_->getOutput()->writef("</log>\n");
    response_->commit();
}

void HttpLog::entry(const char* open, const char* close, MessageBundle* bundle) {
    if (response_ == nullptr || response_->getOutput() == nullptr || bundle == nullptr) return;
    SocketOutputWriter target(response_->getOutput());
    if (count_++ == 0) {
        response_->setStatus(200);
        response_->setField("Content-Type", "text/xml");
        XWriter start(&target);
        start.prolog()->w("<log>\n");
        response_->commit();
    }
    XWriter out(&target);
    out.w(open);
    bundle->appendXML(&out);
    out.w(close);
}

void HttpLog::message(MessageBundle* bundle) {
    entry("<message>\n", "</message>\n", bundle);
}

void HttpLog::warning(MessageBundle* bundle) {
    entry("<warning>\n", "</warning>\n", bundle);
}

void HttpLog::trace(MessageBundle* bundle) {
    entry("<trace>\n", "</trace>\n", bundle);
}

void HttpLog::error(MessageBundle* bundle) {
    entry("<error>\n", "</error>\n", bundle);
}

}  // namespace velmora
