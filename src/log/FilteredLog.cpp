#include <velmora/log/FilteredLog.h>

namespace velmora {

FilteredLog::FilteredLog(Log* log) : log_(log), filterLevel_(1) {}

FilteredLog::FilteredLog(Log* log, int level) : log_(log), filterLevel_(level) {}

void FilteredLog::trace(MessageBundle* bundle) {
    if (filterLevel_ <= 0 && log_ != nullptr) log_->trace(bundle);
}

void FilteredLog::message(MessageBundle* bundle) {
    if (filterLevel_ <= 1 && log_ != nullptr) log_->message(bundle);
}

void FilteredLog::warning(MessageBundle* bundle) {
    if (filterLevel_ <= 2 && log_ != nullptr) log_->warning(bundle);
}

void FilteredLog::error(MessageBundle* bundle) {
    // A filtered-out error leaves no trace at all, not even in getLastError().
    if (filterLevel_ > 3) return;
    if (log_ != nullptr) log_->error(bundle);
    saveError(bundle);
}

}  // namespace velmora
