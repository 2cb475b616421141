#include <velmora/net/Icmp.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>

#include "net/NetReport.h"
#include "net/NetSystem.h"

namespace velmora {

using netreport::Report;

namespace {

Icmp* instance = nullptr;

const int kRequestSize = 16;
const int kReplyRoom = 512;

// "ping: <step> <host> failed - <socket error name>", reported as text only.
void reportSocketFailure(ErrorHandler* handler, const char* step, const char* host) {
    char* name = netreport::socketErrorName();
    char text[256];
    std::snprintf(text, sizeof text, "ping: %s %s failed - %s\n", step, host,
                  name != nullptr ? name : "");
    std::free(name);
    netreport::error(handler, Report(nullptr, text));
}

void putNetwork16(unsigned char* at, unsigned value) {
    at[0] = static_cast<unsigned char>((value >> 8) & 0xff);
    at[1] = static_cast<unsigned char>(value & 0xff);
}

}  // namespace

Icmp* Icmp::getInstance(ErrorHandler* handler) {
    if (instance != nullptr) return instance;
    if (!netsys::startSocketLibrary()) {
        netreport::error(handler,
                         Report("icmp.winsockStartupError", "icmp: Winsock startup failed.\n"));
        return nullptr;
    }
    instance = new (std::nothrow) Icmp();
    return instance;
}

void Icmp::unload() {
    delete instance;
    // The pointer is cleared too, so that a later getInstance makes a new instance rather
    // than handing out a deleted one.
    instance = nullptr;
}

unsigned short Icmp::icmp_checksum(unsigned short* data, int length) {
    uint32_t sum = 0;
    const unsigned char* bytes = reinterpret_cast<const unsigned char*>(data);
    int i = 0;
    for (; i + 1 < length; i += 2) {
        uint16_t word;
        std::memcpy(&word, bytes + i, 2);
        sum += word;
    }
    if (i < length) sum += bytes[i];  // a trailing byte counts as a word of its own value
    sum = (sum >> 16) + (sum & 0xffff);
    sum += sum >> 16;
    return static_cast<unsigned short>(~sum & 0xffff);
}

int Icmp::ping(ErrorHandler* handler, const char* host, int timeout) {
    unsigned char address[4];
    if (host == nullptr ||
        (!netsys::parseIpv4Literal(host, address) && !netsys::lookupIpv4Name(host, address))) {
        netreport::error(handler, Report("platNet.ping.invalidAddress", "ping: invalid address\n")
                                      .arg(host != nullptr ? host : ""));
        return -1;
    }

    // type 8, code 0, checksum, identifier, sequence, then the send time in host order.
    unsigned char request[kRequestSize] = {8, 0};
    putNetwork16(request + 4, static_cast<unsigned>(netsys::processId()) & 0xffff);
    putNetwork16(request + 6, static_cast<unsigned>(sequence_) & 0xffff);
    ++sequence_;
    const int64_t sent = static_cast<int64_t>(std::time(nullptr));
    std::memcpy(request + 8, &sent, 8);
    unsigned short words[kRequestSize / 2];
    std::memcpy(words, request, kRequestSize);
    const unsigned short checksum = icmp_checksum(words, kRequestSize);
    std::memcpy(request + 2, &checksum, 2);  // already in the order the words were summed

    const netsys::Handle handle = netsys::openRawIcmp();
    if (handle == netsys::kInvalidHandle) {
        netreport::error(handler,
                         Report("platNet.ping.socketFailed", "ping: socketFailed\n").arg(host));
        return -1;
    }
    int result = -1;
    char reply[kReplyRoom];
    if (!netsys::sendToIpv4(handle, address, request, kRequestSize)) {
        reportSocketFailure(handler, "send to", host);
    } else {
        const int ready = netsys::waitReadable(handle, timeout < 0 ? 0 : timeout * 1000);
        if (ready < 0) {
            reportSocketFailure(handler, "select", host);
        } else if (ready == 0) {
            netreport::error(handler,
                             Report("platNet.ping.timeout", "ping: request timed out\n").arg(host));
        } else {
            const int got = netsys::receive(handle, reply, kReplyRoom);
            const int headerLength = got > 0 ? (reply[0] & 0x0f) * 4 : 0;
            if (got < 0) {
                reportSocketFailure(handler, "receive", host);
            } else if (headerLength + 16 <= got) {
                // Kept: the first ICMP packet is taken as the answer, whatever its type.
                int64_t then;
                std::memcpy(&then, reply + headerLength + 8, 8);
                const int64_t now = static_cast<int64_t>(std::time(nullptr));
                result = static_cast<int>((now - then) * 1000);
            }
        }
    }
    netsys::closeHandle(handle);
    return result;
}

int Icmp::ping6(ErrorHandler* handler, const char* host, int /*timeout*/) {
    netreport::error(handler, Report("platNet.ping6.unsupported", "ping6: ipv6 is not supported\n")
                                  .arg(host != nullptr ? host : ""));
    return -1;
}

}  // namespace velmora
