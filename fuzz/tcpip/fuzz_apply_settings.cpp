// Any text applied as a settings document to a host of recording stand-ins with two
// adapters that accept everything: no crash, no leak, no read outside the text, and a
// result of 0 or -1. The adapter answers vary with the input so that every branch of the
// apply is reached.
#include <velmora/log/NullLog.h>
#include <velmora/tcpip/TcpIpUtil.h>

#include <cstdint>
#include <string>

#include "tcpip/RecordingSettings.h"

using velmora_test::RecordingAdapter;
using velmora_test::RecordingHost;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    // The first byte chooses the answers: host or adapter level, and what the adapters allow.
    uint8_t choice = data[0];
    std::string text(reinterpret_cast<const char*>(data + 1), size - 1);

    velmora_test::Calls calls;
    RecordingHost host(&calls);
    host.answers.number["usesAdapterLevelSettings"] = choice & 1;
    for (const char* id : {"eth0", "wlan0"}) {
        RecordingAdapter* a = host.add(id);
        a->answers.number = {{"canDisable", (choice >> 1) & 1},
                             {"canUseDhcp", (choice >> 2) & 1},
                             {"isIpv6Supported", (choice >> 3) & 1},
                             {"canDisableIpv6", (choice >> 4) & 1},
                             {"canUseIpv6Dhcp", (choice >> 5) & 1}};
    }
    int result =
        velmora::TcpIpUtil::setHostSettingsXml(&host, &text[0], velmora::NullLog::getInstance());
    if (result != 0 && result != -1) __builtin_trap();
    if (choice & 0x40) {
        std::string again(reinterpret_cast<const char*>(data + 1), size - 1);
        result = velmora::TcpIpUtil::setAdapterSettingsXml(host.getAdapterSettings(nullptr, "eth0"),
                                                           (choice & 1) != 0, &again[0], nullptr);
        if (result != 0 && result != -1) __builtin_trap();
    }
    return 0;
}
