// Everything a tcpIpSettings document can change on this host, captured so that it can be
// put back exactly: the ground for applying a document all or nothing and for changes
// that revert unless confirmed.
//
//   velmora::TcpIpSnapshot* before = velmora::TcpIpSnapshot::take(host, err);
//   if (velmora::TcpIpUtil::setHostSettingsXml(host, root, err) != 0 || ...reports...)
//       before->restore(err);
//   delete before;
//
// On Linux the capture holds the kernel's own records (every address and route of both
// families with all their attributes, link states, the IPv6 switches), the host name and
// the resolver and host-name files byte for byte; restoring takes away what was added,
// puts back what went and leaves alone what did not change. Where the system offers no
// such records (Windows) the capture is the settings document itself, and restoring
// applies it. A capture can be saved to a file and loaded by another process, so that a
// change survives a crash of the process that made it only until its next start.
#pragma once

#include <velmora/Export.h>

namespace velmora {

class ErrorHandler;
class TcpIpHostSettings;
class XElem;

class VELMORA_API TcpIpSnapshot {
public:
    // The host as it is now; null, reported, when it cannot be read.
    static TcpIpSnapshot* take(TcpIpHostSettings* host, ErrorHandler* err);
    // A capture saved by save(); null, reported, when the file is missing or damaged.
    static TcpIpSnapshot* load(TcpIpHostSettings* host, const char* path, ErrorHandler* err);
    // Applies the document all or nothing: when the apply fails or anything is reported,
    // the capture taken before is restored. 0 when applied; -1 when not (every report
    // passed on, followed by "The former network settings were restored" or, when even
    // that failed, what could not be put back).
    static int applyAllOrNothing(TcpIpHostSettings* host, XElem* root, ErrorHandler* err);

    ~TcpIpSnapshot();

    // Puts the host back as captured. 0, or -1 with each part that could not be put back
    // reported.
    int restore(ErrorHandler* err);
    // Whether the host is as captured now; when not, the first difference is reported.
    bool matches(ErrorHandler* err);
    // Writes the capture to `path` (owner-only, flushed to disk). 0 or -1, reported.
    int save(const char* path, ErrorHandler* err) const;

    TcpIpSnapshot(const TcpIpSnapshot&) = delete;
    TcpIpSnapshot& operator=(const TcpIpSnapshot&) = delete;

    struct State;  // the back end's capture

private:
    TcpIpSnapshot(TcpIpHostSettings* host, State* state) : host_(host), state_(state) {}
    TcpIpHostSettings* host_;
    State* state_;
};

}  // namespace velmora
