#include <velmora/text/MulticastWriter.h>

namespace velmora {

MulticastWriter::MulticastWriter() = default;

MulticastWriter::MulticastWriter(CharWriter* first) {
    addWriter(first);
}

MulticastWriter::~MulticastWriter() {
    close();
    while (head_ != nullptr) {
        Node* next = head_->next;
        delete head_;
        head_ = next;
    }
}

void MulticastWriter::addWriter(CharWriter* writer) {
    if (writer == nullptr) return;
    Node* node = new Node{nullptr, writer};
    if (tail_ != nullptr) {
        tail_->next = node;
    } else {
        head_ = node;
    }
    tail_ = node;
    ++count_;
}

int MulticastWriter::write(const char* buf, int len) {
    for (Node* n = head_; n != nullptr; n = n->next)
        n->writer->write(buf, len);
    return len;
}

bool MulticastWriter::write(char c) {
    for (Node* n = head_; n != nullptr; n = n->next)
        n->writer->write(c);
    return true;
}

void MulticastWriter::close() {
    for (Node* n = head_; n != nullptr; n = n->next)
        n->writer->close();
}

}  // namespace velmora
