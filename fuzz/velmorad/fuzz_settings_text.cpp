// The settings text parser on any bytes: every entry it keeps has a key without blanks at
// its ends, no '=' in the key and no control character anywhere; line numbers rise; and
// the entries written back as "key=value" lines read back as the same entries.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "SettingsText.h"

namespace {

void require(bool ok) {
    if (!ok) std::abort();
}

bool clean(const std::string& text) {
    if (!text.empty() && (text.front() == ' ' || text.front() == '\t' || text.back() == ' ' ||
                          text.back() == '\t')) {
        return false;
    }
    for (unsigned char c : text) {
        if ((c < 0x20 && c != '\t') || c == 0x7f) return false;
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const velmorad::SettingsText parsed = velmorad::SettingsText::parse(text);
    std::string again;
    int line = 0;
    for (const velmorad::SettingsText::Entry& e : parsed.entries) {
        require(e.line > line);
        line = e.line;
        require(!e.key.empty() && clean(e.key) && clean(e.value));
        require(e.key.find('=') == std::string::npos);
        require(e.key[0] != '#' && e.key[0] != '!');
        require(parsed.find(e.key) == &e);
        again += e.key + "=" + e.value + "\n";
    }
    const velmorad::SettingsText reread = velmorad::SettingsText::parse(again);
    require(reread.problems.empty() && reread.entries.size() == parsed.entries.size());
    for (size_t i = 0; i < reread.entries.size(); ++i) {
        require(reread.entries[i].key == parsed.entries[i].key);
        require(reread.entries[i].value == parsed.entries[i].value);
    }
    return 0;
}
