// Hands every report to several logs in order. The array is used as given (neither copied
// nor owned), so it must outlive the multicast log; nothing is recorded here.
//
//   velmora::Log* targets[] = {fileLog, velmora::NullLog::getInstance()};
//   velmora::MulticastLog both(2, targets);
#pragma once

#include <velmora/log/Log.h>

namespace velmora {

class VELMORA_API MulticastLog : public virtual Log {
public:
    MulticastLog(int count, Log** logs);

    using ErrorHandler::error;
    using Log::message;
    using Log::trace;
    using Log::warning;
    void trace(MessageBundle* bundle) override;
    void message(MessageBundle* bundle) override;
    void warning(MessageBundle* bundle) override;
    void error(MessageBundle* bundle) override;

private:
    int count_;
    Log** logs_;
};

}  // namespace velmora
