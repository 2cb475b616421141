// Applying a document all or nothing, on top of the back end's capture.
#include <velmora/tcpip/TcpIpSnapshot.h>

#include <velmora/log/ErrorHandler.h>
#include <velmora/log/MessageBundle.h>
#include <velmora/tcpip/TcpIpUtil.h>

#include <memory>

namespace velmora {

namespace {

// Passes every report on and counts those that stand (a clearError withdraws one).
class CountingHandler : public ErrorHandler {
public:
    explicit CountingHandler(ErrorHandler* next) : next_(next) {}
    using ErrorHandler::error;
    void error(MessageBundle* bundle) override {
        ++count_;
        if (next_ != nullptr) next_->error(bundle);
    }
    void clearError() override {
        if (count_ > 0) --count_;
        if (next_ != nullptr) next_->clearError();
        ErrorHandler::clearError();
    }
    int count() const { return count_; }

private:
    ErrorHandler* next_;
    int count_ = 0;
};

}  // namespace

int TcpIpSnapshot::applyAllOrNothing(TcpIpHostSettings* host, XElem* root, ErrorHandler* err) {
    std::unique_ptr<TcpIpSnapshot> before(take(host, err));
    if (before == nullptr) return -1;  // reported; nothing applied
    CountingHandler counting(err);
    int result = TcpIpUtil::setHostSettingsXml(host, root, &counting);
    if (result == 0 && counting.count() == 0) return 0;
    if (before->restore(err) == 0) {
        if (err != nullptr) {
            MessageBundle bundle("platform", "TcpIpSnapshot.restored",
                                 "The former network settings were restored");
            err->error(&bundle);
        }
    }
    return -1;
}

}  // namespace velmora
