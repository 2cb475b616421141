// A growable, zero-terminated narrow string with printf-style appending. It grows in
// fixed steps of the initial size plus one, never by doubling.
//
//   velmora::StringBuffer line(64);
//   line.append("port=").appendf("%d", 8080);
//   int length;
//   puts(line.getBuffer(&length));  // "port=8080", length 9
#pragma once

#include <velmora/Export.h>

namespace velmora {

class VELMORA_API StringBuffer {
public:
    // Capacity and growth step size + 1 (a negative size counts as 0); the buffer is zeroed.
    explicit StringBuffer(int size);
    ~StringBuffer();

    // Appends the text (nothing for null) and returns this buffer, for chaining.
    StringBuffer& append(const char* s);
    // Appends `len` bytes of `s`. When the text and its terminator do not fit, the capacity
    // grows by as many growth steps as needed. Nothing is appended for null, a negative
    // length, a text that would pass 2 GiB, or when memory runs out.
    StringBuffer& append(const char* s, int len);
    // Appends the printf-style formatted text, whatever its length.
#if defined(__GNUC__)
    __attribute__((format(gnu_printf, 2, 3)))
#endif
    StringBuffer&
    appendf(const char* format, ...);
    // Empties the text and zeroes the whole buffer; the capacity stays.
    void clear();

    // Stores the length into `*len` (when not null) and returns the text, valid until the
    // next append or the buffer's end. Null only when memory ran out at construction.
    char* getBuffer(int* len);
    int getLength() const {
        return length_;
    }
    int getCapacity() const {
        return capacity_;
    }

private:
    StringBuffer(const StringBuffer&) = delete;
    StringBuffer& operator=(const StringBuffer&) = delete;

    char* buffer_ = nullptr;
    int capacity_ = 0;
    int length_ = 0;
    int growBy_ = 1;
};

}  // namespace velmora
