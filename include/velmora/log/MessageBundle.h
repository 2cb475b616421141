// One report: the English text for people, plus the lexicon module, key and arguments
// under which a consumer (the Java side) looks up a localised text. Deep-copying: every
// string given is copied, so a bundle on the reporter's stack may go at once.
//
//   velmora::MessageBundle bundle("platform", "socket.unableToConnect", "db1",
//                                 "socket: Unable to connect to db1\n");
//   bundle.addLexiconArgument(5432);
//   handler->error(&bundle);
#pragma once

#include <velmora/Export.h>

namespace velmora {

class XWriter;

// One lexicon argument; the list keeps the order in which arguments were added.
struct MessageArgument {
    char* value;
    MessageArgument* next;
};

class VELMORA_API MessageBundle {
public:
    // Text only: not localised. A null text stays null.
    explicit MessageBundle(const char* text);
    MessageBundle(const char* module, const char* key, const char* text);
    // One lexicon argument, which must not be null.
    MessageBundle(const char* module, const char* key, const char* argument, const char* text);
    // One lexicon argument, the number in decimal.
    MessageBundle(const char* module, const char* key, int argument, const char* text);
    // Deep copy of all four fields, the arguments in the same order.
    explicit MessageBundle(MessageBundle* other);
    ~MessageBundle();

    // Appends a copy at the end of the argument list; `value` must not be null.
    void addLexiconArgument(const char* value);
    void addLexiconArgument(int value);
    // Writes the bundle as XML, each line ending in a line feed:
    //   <message>
    //   <nonlocalized text="..."/>
    //   <localized module="..." key="...">      (only when localised; "/>" without
    //   <lexArg value="..."/>                    arguments)
    //   </localized>
    //   </message>
    // A null text is written as text="".
    void appendXML(XWriter* out);

    const char* getModule() const { return module_; }
    const char* getKey() const { return key_; }
    const char* getText() const { return text_; }
    // The first argument node, null when there is none; walk it with `next`.
    const MessageArgument* getArguments() const { return arguments_; }
    int getArgumentCount() const;
    // Localised when both module and key are set; otherwise only the text counts.
    bool isLocalized() const { return module_ != nullptr && key_ != nullptr; }

private:
    MessageBundle(const MessageBundle&) = delete;
    MessageBundle& operator=(const MessageBundle&) = delete;
    void appendArgument(const char* value);

    char* module_ = nullptr;
    char* key_ = nullptr;
    MessageArgument* arguments_ = nullptr;
    char* text_ = nullptr;
};

}  // namespace velmora
