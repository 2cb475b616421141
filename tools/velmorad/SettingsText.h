// The text of a settings file (lib/velmorad.properties, logs/levels.properties) split into
// "key = value" lines: blank lines and lines starting with # or ! are comments, spaces
// and tabs around the key and the value are dropped, the first '=' ends the key. Lines
// that are not of this form and control characters are problems, reported with their line
// number; nothing is taken from such a line. A key given again replaces the earlier value
// (as in every properties file), with a warning.
//
//   velmorad::SettingsText text = velmorad::SettingsText::parse("port = 8081\n");
//   text.entries[0].key == "port", text.entries[0].value == "8081"
#pragma once

#include <string>
#include <vector>

namespace velmorad {

struct SettingsText {
    struct Entry {
        int line;
        std::string key;
        std::string value;
    };
    struct Problem {
        int line;
        std::string message;
    };

    std::vector<Entry> entries;  // one per key, in the order of their lines
    std::vector<Problem> problems;
    std::vector<Problem> warnings;

    static SettingsText parse(const std::string& text);
    // The entry for `key`, or null.
    const Entry* find(const std::string& key) const;
};

}  // namespace velmorad
