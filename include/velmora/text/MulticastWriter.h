// Sends everything written to it on to several writers, in the order they were added.
// It does not own the writers, but closing it (or destroying it) closes each of them.
//
//   velmora::MulticastWriter both(&logFile);
//   both.addWriter(&console);
//   both.writeString("started\n");
#pragma once

#include <velmora/text/CharWriter.h>

namespace velmora {

class VELMORA_API MulticastWriter : public CharWriter {
public:
    MulticastWriter();
    explicit MulticastWriter(CharWriter* first);
    ~MulticastWriter() override;  // closes every target, deletes none

    void addWriter(CharWriter* writer);            // duplicates allowed
    int write(const char* buf, int len) override;  // returns `len` whatever the targets say
    bool write(char c) override;                   // returns true whatever the targets say
    void close() override;

private:
    MulticastWriter(const MulticastWriter&) = delete;
    MulticastWriter& operator=(const MulticastWriter&) = delete;

    struct Node {
        Node* next;
        CharWriter* writer;
    };
    Node* head_ = nullptr;
    Node* tail_ = nullptr;
    int count_ = 0;
};

}  // namespace velmora
