#include "SettingsText.h"

namespace velmorad {

namespace {

bool blank(char c) {
    return c == ' ' || c == '\t';
}

std::string trimmed(const std::string& text, size_t begin, size_t end) {
    while (begin < end && blank(text[begin]))
        ++begin;
    while (end > begin && blank(text[end - 1]))
        --end;
    return text.substr(begin, end - begin);
}

// The first control character (other than tab) in the line, or -1.
int controlCharacter(const std::string& line) {
    for (unsigned char c : line) {
        if ((c < 0x20 && c != '\t') || c == 0x7f) return c;
    }
    return -1;
}

std::string hex(int c) {
    const char digits[] = "0123456789abcdef";
    return std::string("\\x") + digits[(c >> 4) & 15] + digits[c & 15];
}

}  // namespace

SettingsText SettingsText::parse(const std::string& text) {
    SettingsText out;
    size_t start = 0;
    int number = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        std::string line = text.substr(start, end - start);
        start = end + 1;
        ++number;
        if (!line.empty() && line.back() == '\r') line.pop_back();
        size_t first = 0;
        while (first < line.size() && blank(line[first]))
            ++first;
        if (first == line.size() || line[first] == '#' || line[first] == '!') continue;
        const int control = controlCharacter(line);
        if (control >= 0) {
            out.problems.push_back(
                {number, "the control character " + hex(control) + " is not allowed in a setting"});
            continue;
        }
        const size_t equals = line.find('=');
        if (equals == std::string::npos) {
            out.problems.push_back(
                {number, "\"" + trimmed(line, 0, line.size()) + "\" is not of the form key=value"});
            continue;
        }
        Entry entry{number, trimmed(line, 0, equals), trimmed(line, equals + 1, line.size())};
        if (entry.key.empty()) {
            out.problems.push_back({number, "a value without a key"});
            continue;
        }
        if (const Entry* before = out.find(entry.key)) {
            out.warnings.push_back({number, entry.key +
                                                " is given again; this line replaces line " +
                                                std::to_string(before->line)});
            out.entries.erase(out.entries.begin() + (before - out.entries.data()));
        }
        out.entries.push_back(std::move(entry));
    }
    return out;
}

const SettingsText::Entry* SettingsText::find(const std::string& key) const {
    for (const Entry& e : entries) {
        if (e.key == key) return &e;
    }
    return nullptr;
}

}  // namespace velmorad
