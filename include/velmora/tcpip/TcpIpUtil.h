// The host's TCP/IP configuration as one XML document, and that document applied back.
//
//   velmora::TcpIpHostSettings* host = velmora::TcpIpHostSettings::getInstance(log);
//   velmora::StringWriter text;
//   velmora::XWriter out(&text);
//   velmora::TcpIpUtil::getHostSettingsXml(host, &out, log);   // <tcpIpSettings ...>
//   ...edit...
//   if (velmora::TcpIpUtil::setHostSettingsXml(host, edited, log) != 0) ...reported
//
// The document: a tcpIpSettings element (host name, read-only flag, IPv6 use, and the
// gateway, domain and DNS lists when the host keeps them), then one adapter element per
// adapter. Applying follows the document: isReadonly="true" changes nothing; flags that a
// document leaves out switch the adapter, DHCP and IPv6 off where the adapter allows it.
// The document is UTF-8 both ways: it is written in the writer's UTF-8 mode and read in the
// parser's. No state of its own; nothing is synchronised.
#pragma once

#include <velmora/Export.h>

namespace velmora {

class ErrorHandler;
class TcpIpAdapterSettings;
class TcpIpHostSettings;
class XElem;
class XWriter;

class VELMORA_API TcpIpUtil {
public:
    // Writes the whole tcpIpSettings document.
    static void getHostSettingsXml(TcpIpHostSettings* host, XWriter* out, ErrorHandler* err);
    // Writes one adapter element; `adapterLevel` is the host's usesAdapterLevelSettings.
    static void getAdapterSettingsXml(TcpIpAdapterSettings* adapter, bool adapterLevel,
                                      XWriter* out, ErrorHandler* err);
    // Applies a document. 0 on success; -1 when an adapter could not be applied (reported
    // as "Error occurred when saving adapter settings") or the text is not a document.
    static int setHostSettingsXml(TcpIpHostSettings* host, XElem* root, ErrorHandler* err);
    static int setHostSettingsXml(TcpIpHostSettings* host, char* text, ErrorHandler* err);
    // Applies one adapter element. Kept: an element with "ipAddress" but no "subnetMask"
    // is destroyed and -1 returned, so the caller must not use it afterwards.
    static int setAdapterSettingsXml(TcpIpAdapterSettings* adapter, bool adapterLevel, XElem* elem,
                                     ErrorHandler* err);
    static int setAdapterSettingsXml(TcpIpAdapterSettings* adapter, bool adapterLevel, char* text,
                                     ErrorHandler* err);
};

}  // namespace velmora
