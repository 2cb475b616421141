#include <velmora/text/CharReader.h>
#include <velmora/text/CharWriter.h>

#include <climits>
#include <cstring>

namespace velmora {

CharWriter::~CharWriter() = default;

int CharWriter::writeString(const char* s) {
    if (s == nullptr) return 0;
    size_t n = std::strlen(s);
    return write(s, n > INT_MAX ? INT_MAX : static_cast<int>(n));
}

void CharWriter::close() {}

CharReader::~CharReader() = default;

void CharReader::close() {}

}  // namespace velmora
