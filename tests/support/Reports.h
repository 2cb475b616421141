// An error handler that keeps every report it gets, for tests that check what an
// operation reported (and that it reported nothing).
#pragma once

#include <velmora/log/ErrorHandler.h>

#include <string>
#include <vector>

namespace velmora {
namespace test {

class Reports : public ErrorHandler {
public:
    using ErrorHandler::error;
    void error(MessageBundle* b) override {
        texts.push_back(b->getText() != nullptr ? b->getText() : "");
        keys.push_back(b->getKey() != nullptr ? b->getKey() : "");
    }
    // Every text, each followed by a line end: one string for an assertion's message.
    std::string all() const {
        std::string s;
        for (const std::string& t : texts)
            s += t + "\n";
        return s;
    }
    std::vector<std::string> texts;
    std::vector<std::string> keys;  // "" for a text-only report
};

}  // namespace test
}  // namespace velmora
