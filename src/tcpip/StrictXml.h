// Internal: a strict reader for the small XML documents the settings exchange uses:
// elements and attributes only. Anything a conforming parser would refuse is refused
// (mismatched or missing end tags, a second root, duplicate attributes, stray '<' or '&',
// unknown references), and so is what these documents never hold: text between
// elements, CDATA sections, document types. Comments and processing instructions are
// skipped. Values come back with their references replaced.
//
//   StrictXml::Node root;
//   std::string why;
//   if (!StrictXml::parse(text, length, &root, &why)) ...why says what and where
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace velmora {

class StrictXml {
public:
    struct Node {
        std::string name;
        std::vector<std::pair<std::string, std::string>> attributes;  // in document order
        std::vector<Node> children;
        // The value of attribute `name`, or null.
        const std::string* get(const char* attribute) const;
    };

    // Nesting deeper than this is refused (the settings documents have five levels).
    static const int kMaxDepth = 16;
    // So are documents with more elements than this.
    static const int kMaxElements = 100000;

    static bool parse(const char* text, size_t length, Node* root, std::string* why);
};

}  // namespace velmora
