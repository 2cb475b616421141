// Any text checked as a settings document, alone and against a host of recording
// stand-ins: no crash, no leak, no read outside the text. A text the strict check accepts
// must also be a tcpIpSettings document to the lenient parser that applying uses, so that
// the two readers never disagree about what is applied.
#include <velmora/tcpip/TcpIpDocumentCheck.h>
#include <velmora/text/StringReader.h>
#include <velmora/xml/XElem.h>
#include <velmora/xml/XParser.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "tcpip/RecordingSettings.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const char* text = reinterpret_cast<const char*>(data);
    int alone = velmora::TcpIpDocumentCheck(nullptr).check(text, size, nullptr);

    velmora_test::Calls calls;
    velmora_test::RecordingHost host(&calls);
    velmora_test::RecordingAdapter* eth0 = host.add("eth0");
    eth0->answers.text["getIpAddress"] = "192.0.2.10";
    eth0->answers.text["getSubnetMask"] = "255.255.255.0";
    eth0->answers.number["isIpv6Supported"] = 1;
    host.answers.text["getDefaultGateway"] = "192.0.2.1";
    host.answers.number["getDnsHostLimit"] = 3;
    velmora::TcpIpDocumentCheck check(&host);
    check.requireAdapterFlags(size % 2 == 0);
    check.check(text, size, nullptr);

    if (alone == 0) {
        std::string copy(text, size);
        velmora::StringReader in(copy.c_str(), static_cast<int>(copy.size()));
        velmora::XParser parser(&in);
        std::unique_ptr<velmora::XElem> root(parser.parse(true));
        // A NUL ends the lenient reader's input, and it stops at a raw byte above 127:
        // the property holds for the ASCII texts both read whole.
        bool ascii = true;
        for (size_t i = 0; i < size; ++i)
            ascii = ascii && data[i] != 0 && data[i] < 0x80;
        if (ascii && (root == nullptr || std::strcmp(root->getName(), "tcpIpSettings") != 0))
            __builtin_trap();
    }
    return 0;
}
