#include "xml/XmlTables.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace velmora {
namespace xml {

namespace {

std::mutex& tableMutex() {
    static std::mutex m;
    return m;
}

std::atomic<unsigned char*> classes{nullptr};
std::atomic<char*> spaces{nullptr};

unsigned char* buildClasses() {
    auto* t = static_cast<unsigned char*>(std::calloc(256, 1));
    if (t == nullptr) return nullptr;
    for (int c = 'a'; c <= 'z'; ++c)
        t[c] = kNameChar;
    for (int c = 'A'; c <= 'Z'; ++c)
        t[c] = kNameChar;
    for (int c = '0'; c <= '9'; ++c)
        t[c] = kNameChar;
    t['-'] = t['.'] = t['_'] = kNameChar;
    t[' '] = t['\t'] = t['\n'] = t['\r'] = kSpaceChar;
    return t;
}

char* buildSpaces() {
    auto* s = static_cast<char*>(std::malloc(kIndentSpaces + 1));
    if (s == nullptr) return nullptr;
    std::memset(s, ' ', kIndentSpaces);
    s[kIndentSpaces] = '\0';
    return s;
}

template <typename T, typename Build>
T* getOrBuild(std::atomic<T*>& slot, Build build) {
    T* t = slot.load(std::memory_order_acquire);
    if (t != nullptr) return t;
    std::lock_guard<std::mutex> guard(tableMutex());
    t = slot.load(std::memory_order_relaxed);
    if (t == nullptr) {
        t = build();
        slot.store(t, std::memory_order_release);
    }
    return t;
}

template <typename T>
void release(std::atomic<T*>& slot) {
    std::lock_guard<std::mutex> guard(tableMutex());
    std::free(slot.exchange(nullptr));
}

}  // namespace

const unsigned char* charClasses() {
    // Without memory for the table every byte is of no class: names end at once and the
    // parser reads markup as malformed rather than crashing.
    static const unsigned char kEmpty[256] = {};
    const unsigned char* t = getOrBuild(classes, buildClasses);
    return t != nullptr ? t : kEmpty;
}

void releaseCharClasses() {
    release(classes);
}

const char* indentSpaces() {
    const char* s = getOrBuild(spaces, buildSpaces);
    return s != nullptr ? s : "                                                  ";
}

void releaseIndentSpaces() {
    release(spaces);
}

}  // namespace xml
}  // namespace velmora
