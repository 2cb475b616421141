// The Windows capture: the settings document as read before the change. The system keeps
// no record of a configuration that could be put back whole, so restoring applies that
// document again, as far as the settings classes can change what it names.
#include <velmora/tcpip/TcpIpSnapshot.h>

#include <velmora/log/ErrorHandler.h>
#include <velmora/log/MessageBundle.h>
#include <velmora/tcpip/TcpIpUtil.h>
#include <velmora/text/StringReader.h>
#include <velmora/text/StringWriter.h>
#include <velmora/xml/XElem.h>
#include <velmora/xml/XParser.h>
#include <velmora/xml/XWriter.h>

#include <cstdio>
#include <memory>
#include <new>
#include <string>
#include <vector>

namespace velmora {

struct TcpIpSnapshot::State {
    std::string document;
};

namespace {

const char kMagic[] = "velmora-network-capture document\n";

void report(ErrorHandler* err, const char* key, const std::string& text) {
    if (err == nullptr) return;
    MessageBundle bundle("platform", key, text.c_str());
    err->error(&bundle);
}

std::string documentOf(TcpIpHostSettings* host, ErrorHandler* err) {
    StringWriter text;
    {
        XWriter out(&text);
        TcpIpUtil::getHostSettingsXml(host, &out, err);
    }
    return text.getString() != nullptr ? text.getString() : "";
}

bool readAll(const char* path, std::string* out) {
    std::FILE* f = std::fopen(path, "rb");
    if (f == nullptr) return false;
    char buffer[4096];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0)
        out->append(buffer, n);
    bool ok = std::ferror(f) == 0;
    std::fclose(f);
    return ok;
}

}  // namespace

TcpIpSnapshot* TcpIpSnapshot::take(TcpIpHostSettings* host, ErrorHandler* err) {
    if (host == nullptr) return nullptr;
    State* s = new (std::nothrow) State();
    if (s == nullptr) return nullptr;
    s->document = documentOf(host, err);
    TcpIpSnapshot* snapshot = new (std::nothrow) TcpIpSnapshot(host, s);
    if (snapshot == nullptr) delete s;
    return snapshot;
}

TcpIpSnapshot* TcpIpSnapshot::load(TcpIpHostSettings* host, const char* path, ErrorHandler* err) {
    std::string text;
    if (path == nullptr || !readAll(path, &text) ||
        text.compare(0, sizeof kMagic - 1, kMagic) != 0) {
        report(err, "TcpIpSnapshot.damaged",
               std::string("Not a saved network capture: ") + (path != nullptr ? path : ""));
        return nullptr;
    }
    State* s = new (std::nothrow) State();
    if (s == nullptr) return nullptr;
    s->document = text.substr(sizeof kMagic - 1);
    TcpIpSnapshot* snapshot = new (std::nothrow) TcpIpSnapshot(host, s);
    if (snapshot == nullptr) delete s;
    return snapshot;
}

TcpIpSnapshot::~TcpIpSnapshot() {
    delete state_;
}

int TcpIpSnapshot::restore(ErrorHandler* err) {
    std::vector<char> text(state_->document.begin(), state_->document.end());
    text.push_back('\0');
    return TcpIpUtil::setHostSettingsXml(host_, text.data(), err) == 0 ? 0 : -1;
}

bool TcpIpSnapshot::matches(ErrorHandler* err) {
    if (documentOf(host_, nullptr) == state_->document) return true;
    report(err, "TcpIpSnapshot.differs", "The network settings differ from the capture");
    return false;
}

int TcpIpSnapshot::save(const char* path, ErrorHandler* err) const {
    std::FILE* f = path != nullptr ? std::fopen(path, "wb") : nullptr;
    bool ok = f != nullptr;
    if (ok) {
        ok = std::fwrite(kMagic, 1, sizeof kMagic - 1, f) == sizeof kMagic - 1 &&
             std::fwrite(state_->document.data(), 1, state_->document.size(), f) ==
                 state_->document.size();
        ok = std::fflush(f) == 0 && ok;
        ok = std::fclose(f) == 0 && ok;
    }
    if (ok) return 0;
    report(err, "TcpIpSnapshot.saveFailed",
           std::string("Cannot write ") + (path != nullptr ? path : ""));
    return -1;
}

}  // namespace velmora
