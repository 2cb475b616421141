#include <velmora/log/MulticastLog.h>

namespace velmora {

MulticastLog::MulticastLog(int count, Log** logs)
    : count_(logs != nullptr ? count : 0), logs_(logs) {}

void MulticastLog::trace(MessageBundle* bundle) {
    for (int i = 0; i < count_; i++) {
        if (logs_[i] != nullptr) logs_[i]->trace(bundle);
    }
}

void MulticastLog::message(MessageBundle* bundle) {
    for (int i = 0; i < count_; i++) {
        if (logs_[i] != nullptr) logs_[i]->message(bundle);
    }
}

void MulticastLog::warning(MessageBundle* bundle) {
    for (int i = 0; i < count_; i++) {
        if (logs_[i] != nullptr) logs_[i]->warning(bundle);
    }
}

void MulticastLog::error(MessageBundle* bundle) {
    for (int i = 0; i < count_; i++) {
        if (logs_[i] != nullptr) logs_[i]->error(bundle);
    }
}

}  // namespace velmora
