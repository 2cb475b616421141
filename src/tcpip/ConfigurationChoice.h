// Which of several network adapter configurations that share one hardware address a
// change goes to. Virtual adapters and miniports without IP can carry the same address as
// the real adapter; the configuration with IP enabled is the one to change, the first one
// offered only when none has IP enabled.
//
//   velmora::ConfigurationChoice choice;
//   for (each configuration row)
//       if (choice.offer(row.path, row.ipEnabled)) break;  // final: IP enabled
//   if (choice.found()) use(choice.chosen());
#pragma once

#include <string>

namespace velmora {

class ConfigurationChoice {
public:
    // True when the choice is final and the rest need not be offered.
    bool offer(const std::wstring& path, bool ipEnabled) {
        if (final_) return true;
        if (!found_ || ipEnabled) {
            chosen_ = path;
            found_ = true;
        }
        final_ = ipEnabled;
        return final_;
    }
    bool found() const { return found_; }
    const std::wstring& chosen() const { return chosen_; }

private:
    std::wstring chosen_;
    bool found_ = false;
    bool final_ = false;
};

}  // namespace velmora
