// The process-wide tables of the XML code: the character classes of the parser and the
// indentation spaces of the writer. Each is built once on first use (safely when several
// threads ask at the same time) and released by its unload; a later use builds it again.
// Unloading while another thread parses or writes is the caller's error.
#pragma once

namespace velmora {
namespace xml {

enum : unsigned char { kNameChar = 1, kSpaceChar = 2 };

// 256 entries: kNameChar for a-z A-Z 0-9 - . _, kSpaceChar for space, tab, LF and CR.
const unsigned char* charClasses();
void releaseCharClasses();

const int kIndentSpaces = 50;
const char* indentSpaces();  // kIndentSpaces spaces, zero-terminated
void releaseIndentSpaces();

}  // namespace xml
}  // namespace velmora
