// The reports of one request's library calls, kept in order so that an answer can carry
// them. A clearError() from the library forgets the report it clears: the library uses it
// to withdraw a failure that does not count.
#pragma once

#include <velmora/log/ErrorHandler.h>
#include <velmora/log/MessageBundle.h>

#include <string>
#include <vector>

namespace velmorad {

class Reports : public velmora::ErrorHandler {
public:
    using velmora::ErrorHandler::error;
    void error(velmora::MessageBundle* bundle) override {
        std::string t = bundle->getText() != nullptr ? bundle->getText() : "";
        while (!t.empty() && (t.back() == '\n' || t.back() == '\r'))
            t.pop_back();
        texts.push_back(t);
    }
    void clearError() override {
        if (!texts.empty()) texts.pop_back();
        velmora::ErrorHandler::clearError();
    }
    bool any() const { return !texts.empty(); }
    // The last report's text, or "" when there is none.
    std::string last() const { return texts.empty() ? std::string() : texts.back(); }
    // Every report, joined by "; ".
    std::string joined() const {
        std::string all;
        for (const std::string& t : texts)
            all += (all.empty() ? "" : "; ") + t;
        return all;
    }

    std::vector<std::string> texts;
};

}  // namespace velmorad
