// Registry texts on any bytes: the delimited split stays inside the buffer and its
// capacity + 1 slots, and gives non-empty entries free of delimiters in buffer order; the
// multi-string split gives exactly the runs that follow a zero byte.
#include <velmora/platform/RegUtil.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1 || size > 1 << 16) return 0;
    const int capacity = data[0] % 32;
    const int n = static_cast<int>(size - 1);
    const char* delimiters = ", ;\t";

    // Exactly sized on the heap, so that AddressSanitizer sees any overrun.
    std::unique_ptr<char[]> text(new char[n > 0 ? n : 1]);
    std::memcpy(text.get(), data + 1, size - 1);
    std::unique_ptr<char*[]> entries(new char*[capacity + 1]);
    int count = capacity;
    velmora::RegUtil::parseDelimited(n > 0 ? text.get() : nullptr, n, entries.get(), &count,
                                     delimiters);
    if (count < 0 || count > capacity) std::abort();
    const char* previous = text.get() - 1;
    for (int i = 0; i < count; ++i) {
        const char* e = entries[i];
        if (e <= previous || e >= text.get() + n) std::abort();
        const size_t len = strnlen(e, static_cast<size_t>(text.get() + n - e));
        if (len == 0 || e + len >= text.get() + n) std::abort();  // terminated inside
        if (std::strpbrk(e, delimiters) != nullptr) std::abort();
        previous = e + len;
    }

    std::unique_ptr<char[]> multi(new char[n > 0 ? n : 1]);
    std::memcpy(multi.get(), data + 1, size - 1);
    std::unique_ptr<char*[]> parts(new char*[size / 2 + 1]);
    int parts_count = -1;
    velmora::RegUtil::parseRegMultiSz(multi.get(), n, parts.get(), &parts_count);
    int expected = 0;
    for (int i = 0; i < n; ++i) {
        if (multi[i] != 0 && (i == 0 || multi[i - 1] == 0)) {
            if (expected >= parts_count || parts[expected] != multi.get() + i) std::abort();
            ++expected;
        }
    }
    if (expected != parts_count) std::abort();
    return 0;
}
