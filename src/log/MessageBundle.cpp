#include <velmora/log/MessageBundle.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <velmora/xml/XWriter.h>

namespace velmora {

namespace {

// A copy with its terminating zero; null stays null (and so does a failed allocation).
char* copyText(const char* s) {
    if (s == nullptr) return nullptr;
    size_t n = std::strlen(s) + 1;
    char* copy = static_cast<char*>(std::malloc(n));
    if (copy != nullptr) std::memcpy(copy, s, n);
    return copy;
}

}  // namespace

MessageBundle::MessageBundle(const char* text) : text_(copyText(text)) {}

MessageBundle::MessageBundle(const char* module, const char* key, const char* text)
    : module_(copyText(module)), key_(copyText(key)), text_(copyText(text)) {}

MessageBundle::MessageBundle(const char* module, const char* key, const char* argument,
                             const char* text)
    : MessageBundle(module, key, text) {
    appendArgument(argument);
}

MessageBundle::MessageBundle(const char* module, const char* key, int argument, const char* text)
    : MessageBundle(module, key, text) {
    addLexiconArgument(argument);
}

MessageBundle::MessageBundle(MessageBundle* other) {
    if (other == nullptr) return;
    module_ = copyText(other->module_);
    key_ = copyText(other->key_);
    text_ = copyText(other->text_);
    for (const MessageArgument* a = other->arguments_; a != nullptr; a = a->next) {
        appendArgument(a->value);
    }
}

MessageBundle::~MessageBundle() {
    while (arguments_ != nullptr) {
        MessageArgument* next = arguments_->next;
        std::free(arguments_->value);
        std::free(arguments_);
        arguments_ = next;
    }
    std::free(module_);
    module_ = nullptr;
    std::free(key_);
    key_ = nullptr;
    std::free(text_);
    text_ = nullptr;
}

void MessageBundle::addLexiconArgument(const char* value) {
    appendArgument(value);
}

void MessageBundle::addLexiconArgument(int value) {
    char number[16];
    std::snprintf(number, sizeof number, "%d", value);
    appendArgument(number);
}

void MessageBundle::appendXML(XWriter* out) {
    if (out == nullptr) return;
    out->w("<message>\n");
    out->w("<nonlocalized ")->attr("text", text_ != nullptr ? text_ : "")->w("/>\n");
    if (isLocalized()) {
        out->w("<localized ")->attr("module", module_)->w(" ")->attr("key", key_);
        if (arguments_ == nullptr) {
            out->w("/>\n");
        } else {
            out->w(">\n");
            for (const MessageArgument* a = arguments_; a != nullptr; a = a->next) {
                out->w("<lexArg ")->attr("value", a->value)->w("/>\n");
            }
            out->w("</localized>\n");
        }
    }
    out->w("</message>\n");
}

int MessageBundle::getArgumentCount() const {
    int n = 0;
    for (const MessageArgument* a = arguments_; a != nullptr; a = a->next)
        n++;
    return n;
}

void MessageBundle::appendArgument(const char* value) {
    // A null argument is a caller's error; it is skipped rather than stored as a hole.
    if (value == nullptr) return;
    MessageArgument* node = static_cast<MessageArgument*>(std::malloc(sizeof(MessageArgument)));
    if (node == nullptr) return;
    node->value = copyText(value);
    node->next = nullptr;
    if (node->value == nullptr) {
        std::free(node);
        return;
    }
    MessageArgument** tail = &arguments_;
    while (*tail != nullptr)
        tail = &(*tail)->next;
    *tail = node;
}

}  // namespace velmora
