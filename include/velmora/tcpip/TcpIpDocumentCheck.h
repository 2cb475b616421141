// A strict reading of a tcpIpSettings document before anything of it is applied: the
// applying side (TcpIpUtil) takes what its lenient parser makes of any text and applies
// what it finds, so a caller that receives documents from outside checks them here first.
//
//   velmora::TcpIpDocumentCheck check(host);
//   check.requireAdapterFlags(true);
//   if (check.check(body, length, &reports) != 0) ...refuse, every problem was reported
//
// The text must be well formed (one root named tcpIpSettings, matching end tags, no text
// between elements, no document type, references that name a character), every element
// and attribute name one the document knows, and no value may hold a control character
// or NUL. Values must make sense: booleans "true" or "false", host and domain names the
// system keeps, unicast addresses of the right family (not the unspecified, broadcast,
// multicast or a loopback address on an adapter), contiguous subnet masks other than 0,
// prefix lengths 1 to 128, known adapter ids, at most as many DNS servers as the host uses,
// and gateways that are no adapter's own address and lie in a subnet an adapter reaches
// (the document's addresses, or the host's for adapters it leaves alone) unless the host
// uses that gateway already. Without a host only what the text says alone is checked.
#pragma once

#include <velmora/Export.h>

#include <cstddef>

namespace velmora {

class ErrorHandler;
class TcpIpHostSettings;

class VELMORA_API TcpIpDocumentCheck {
public:
    explicit TcpIpDocumentCheck(TcpIpHostSettings* host) : host_(host) {}

    // Also refuse adapter elements without "enabled" (and "ipv6Enabled" where the adapter
    // has IPv6): the apply reads a missing flag as false and switches the adapter off.
    void requireAdapterFlags(bool on) { requireFlags_ = on; }

    // The number of problems found in the `length` bytes at `text`, each reported
    // through `err` with its own text; 0 when the document may be applied.
    int check(const char* text, size_t length, ErrorHandler* err) const;

private:
    TcpIpHostSettings* host_;
    bool requireFlags_ = false;
};

}  // namespace velmora
