// A growable in-memory text, safe to write from several threads. The buffer always holds
// a terminating zero after the text and its capacity grows by one increment per write
// call (as far as needed for a write longer than that). The memory behind it grows at
// least by doubling, so that a long text costs few reallocations whatever the increment.
//
//   velmora::StringWriter out;
//   out.writeString("port=");
//   out.write('8');
//   puts(out.getString());  // "port=8"
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include <velmora/platform/PlatformUtil.h>
#include <velmora/text/CharWriter.h>

namespace velmora {

class VELMORA_API StringWriter : public CharWriter {
public:
    StringWriter();                        // increment and capacity 1024
    explicit StringWriter(int increment);  // increment and initial capacity; <= 0 means 1024
    explicit StringWriter(const char* s);  // as StringWriter(), then writeString(s)
    // As StringWriter(len), then write(s, len), with the memory for both taken at once.
    StringWriter(const char* s, int len);
    ~StringWriter() override;

    // Appends under the lock and returns `len`, also when closed (then nothing is written).
    // A write that would pass 4 GiB writes nothing and returns 0.
    int write(const char* buf, int len) override;
    bool write(char c) override;
    // Later writes are ignored; the text stays readable.
    void close() override;
    // Zeroes the text; takes no lock and leaves a closed writer closed.
    virtual void clear();

    // The text itself, zero-terminated, valid until the next write; takes no lock.
    const char* getString() const { return buffer_; }
    // Takes no lock either: the length is kept so that it can be read while others write.
    int getLength() const { return static_cast<int>(length_.load(std::memory_order_acquire)); }
    uint32_t getCapacity() const { return capacity_; }
    // Hold the writer still while reading getString() as other threads write.
    void lock();
    void unlock();

private:
    // A BufferedXWriter gathers straight into the memory after the text and hands it over
    // in place, without a copy.
    friend class BufferedXWriter;
    // At least `want` bytes of memory right after the text, `*room` of them in all; null
    // when closed or without the memory.
    char* spare(size_t want, size_t* room);
    // Takes the `n` bytes written at spare() into the text (none when closed). The 32
    // bytes after them may hold bytes written past them and are zeroed again.
    void takeSpare(size_t n);

    StringWriter(const StringWriter&) = delete;
    StringWriter& operator=(const StringWriter&) = delete;
    void init(uint32_t increment, size_t allocate);
    bool reserve(size_t size);  // under the lock

    char* buffer_ = nullptr;
    uint32_t increment_ = 0;
    uint32_t capacity_ = 0;
    std::atomic<uint32_t> length_{0};  // written under the lock
    // Bytes allocated, at least capacity_. Within the capacity everything after the text is
    // zero; the bytes beyond it are unset until the capacity grows over them.
    size_t allocated_ = 0;
    PlatformMutex mutex_ = nullptr;
    bool closed_ = false;
};

}  // namespace velmora
