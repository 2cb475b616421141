// Any text as a header line: the parse never reads or writes out of bounds, a field has
// both a name and a value or neither, and every attribute can be read back.
#include <velmora/http/HeaderField.h>

#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string line(reinterpret_cast<const char*>(data), size);
    velmora::HeaderField field(line.c_str());
    if ((field.getName() == nullptr) != (field.getValue() == nullptr)) std::abort();
    velmora::KeyedList* attributes = field.getAttributes();
    for (int i = 0; i < attributes->getCount(); ++i) {
        char key[64] = "";
        char value[64] = "";
        attributes->getKey(i, key, sizeof key - 1);
        attributes->getAtIndex(i, value, sizeof value - 1);
        if (value[0] == '\0') std::abort();  // empty words are never added
    }
    return 0;
}
