// Internal: what the Linux host and adapter settings share.
//
// On Linux the settings are read and changed where the system keeps them: links,
// addresses and default routes through rtnetlink (Netlink.h), the DNS servers and the
// domain in the resolver file, the host name through the kernel and the host-name file.
// The two file paths are settings of the host object (setResolverPath, setHostnamePath).
//
// The fixed answers and why:
// - usesAdapterLevelSettings: false. The default gateway is a route of the host, and the
//   resolver file serves every link, so gateway, domain and DNS servers are host-level;
//   an adapter answers its own default route for getDefaultGateway, no DNS servers and
//   no domain, and its setters for them refuse with "Property is managed at the host
//   level".
// - canUseDhcp, canUseIpv6Dhcp: false. The library runs no DHCP client. An address counts
//   as DHCP-assigned only where the kernel marks it dynamic (no IFA_F_PERMANENT), and a
//   request to change that state refuses as read-only.
// - canDisable: true. A link is set down and up (IFF_UP); isEnabled answers that
//   administrative state, not whether a carrier is present, so that a document read from
//   the host applies back unchanged.
// - isIpv6Supported, canDisableIpv6: true where the kernel has IPv6 for the link
//   (/proc/sys/net/ipv6/conf/<link>/disable_ipv6 exists); isIpv6Enabled is that switch.
// - isIPv6Readonly: false. IPv6 is switched per link and its addresses and gateway are
//   changed like IPv4's; the platform's own flag is a file of ours.
// - isReadonly: false. A caller without the privilege gets each refusal reported with
//   the system's text; whether applying is allowed at all is the caller's decision
//   (the daemon's network.apply).
// - getDnsHostLimit: 3, the number of "nameserver" lines the C library's resolver uses.
//   The IPv4 and IPv6 lists are each held to it; the resolver uses the first three lines
//   of both together, IPv4 lines first when the file was written here.
// - The IPv4 address shown is the link's primary one (not secondary) and the IPv6
//   address is its first global one, static before kernel-made; link-local addresses are
//   the kernel's own and are neither shown nor changed. Addresses stay on a link that is
//   down, so they are shown for it too.
// - A setter given the value shown changes nothing. A changed address, prefix length or
//   gateway replaces only the record shown (KernelRecords.h): the link's other addresses
//   keep their places, the routes the kernel takes away with an address come back with all
//   their attributes, other default routes (those without a gateway among them) stay, and
//   a route that cannot be put back is reported by name.
// - Host names follow the kernel: 1 to 64 characters (letters, digits, '-', '.').
//
// The adapter list holds every link except loopback, in index order, ids being the link
// names. It is rebuilt when the set of links changes (see refreshAdapters in
// LinuxHostSettings.cpp): adapter pointers handed out before then are no longer valid.
//
// Ordering: a document sets the host's gateway before the adapters' addresses, so a new
// gateway in a network that only a new address reaches cannot be installed yet. The host
// remembers the last gateway asked of each family and installs it again after an
// adapter's address or link state changed, as soon as it is reachable. A gateway that no
// link reaches is therefore not reported by the setter: a caller that must know reads
// the gateway back (the daemon does, and reports the difference). Restoring a capture
// (TcpIpSnapshot) forgets the remembered gateways, so that nothing of a document that was
// undone comes back with a later change.
#pragma once

#include <velmora/log/ErrorHandler.h>

#include <string>

namespace velmora {
namespace linuxnet {

// Reports `text` under module "platform" and `key`, with `argument` as lexicon argument.
void report(ErrorHandler* err, const char* key, const std::string& argument,
            const std::string& text);
// Reports "<what>: <system text of code>".
void reportSystem(ErrorHandler* err, const char* key, const std::string& what, int code);

// The whole file; false with the errno value in *code when it cannot be read.
bool readText(const char* path, std::string* out, int* code);
// Replaces the file's whole text through FileUtil::rewriteFile (links followed, mode,
// owner and group kept, never half written). 0 or errno.
int writeAtomically(const char* path, const std::string& text);
// The same for a file only its owner may read (mode 0600 whatever the old file had).
int writePrivately(const char* path, const std::string& text);

// The link's IPv6 switch (/proc/sys/net/ipv6/conf/<link>/disable_ipv6): false when the
// kernel has no IPv6 for the link or the name could leave that directory.
bool readIpv6Switch(const std::string& link, bool* disabled);
// Sets the switch. 0 or errno.
int writeIpv6Switch(const std::string& link, bool disabled);

// The numeric text of 4 or 16 address bytes.
std::string addressText(int family, const unsigned char* bytes);

// The default route whose gateway the document shows (the first route of the main
// table with no destination and a gateway); false when there is none.
bool shownGateway(int family, std::string* record);
// Installs `bytes` as gateway of `family` (AF_INET, AF_INET6). With a template (the record
// of the route shown so far) that route is replaced by a copy that differs only in its
// gateway (and device: `outIndex` when not 0; the template's own for a link-local
// gateway or an onlink route); when the copy is refused the old route is put back. Without one a plain route
// is added. A link-local gateway without any device is refused with EINVAL. 0 or errno.
int installGateway(int family, const unsigned char* bytes, int outIndex,
                   const std::string& templateRecord);
// Removes every default route of `family` that has a gateway; routes without one (a
// point-to-point link's) are no gateway and stay. 0 or errno.
int clearDefaultGateways(int family);
// Whether the kernel refused a gateway because no link reaches it (yet): "network
// unreachable", "no route to host" (IPv6) or "invalid gateway" (IPv4 answers EINVAL).
bool isUnreachable(int code);
// The gateway last asked for (empty bytes: none), installed again by restoreGateways,
// with the record of the route it replaces.
void rememberGateway(int family, const unsigned char* bytes, bool set, int outIndex,
                     const std::string& templateRecord);
// The key (RtMessage::key) of the route a remembered gateway replaces, else empty: the
// route is not to be kept beside its replacement.
std::string replacedGateway(int family);
// After an address or link change: installs remembered gateways that are missing and now
// reachable; a failure other than "unreachable" is reported.
void restoreGateways(ErrorHandler* err);
// Forgets the remembered gateways of both families.
void forgetGateways();

}  // namespace linuxnet
}  // namespace velmora
